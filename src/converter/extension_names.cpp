#include "converter/extension_names.h"

#include <fmt/format.h>

#include <set>

#include "converter/common.h"

namespace tovrek::converter {
namespace {

constexpr char kIdentifier[] = "CFBundleIdentifier";
constexpr char kCompanion[] = "WKCompanionAppBundleIdentifier";

// Renames all texts that are one of `names`, at any depth.
void renameTexts(const Run& run, const std::set<std::string>& names, PlistValue* value) {
  if (const std::string* text = value->string()) {
    if (names.contains(*text)) *value = renamedIdentifier(run, *text);
  } else if (PlistValue::Array* list = value->array()) {
    for (PlistValue& each : *list) renameTexts(run, names, &each);
  } else if (PlistDictionary* dictionary = value->dictionary()) {
    std::vector<std::string> keys;
    for (const auto& entry : *dictionary) keys.push_back(entry.first);
    for (const std::string& key : keys) renameTexts(run, names, dictionary->find(key));
  }
}

bool renameBundle(const Run& run, const std::string& path, const std::set<std::string>& names,
                  ErrorText* error) {
  const std::string file = joinPath(path, "Info.plist");
  ErrorText reason;
  auto info = readPlistDictionary(file, &reason);
  if (!info) return fail(error, file + ": " + reason.text());
  const PlistDictionary before = *info;
  const std::string old = stringForKeyOr(*info, kIdentifier, "");
  if (!old.empty()) info->set(kIdentifier, renamedIdentifier(run, old));
  if (PlistValue* companion = info->find(kCompanion)) renameTexts(run, names, companion);
  PlistValue* extension = info->find("NSExtension");
  PlistValue* attributes = extension && extension->dictionary()
                               ? extension->dictionary()->find("NSExtensionAttributes")
                               : nullptr;
  if (attributes) renameTexts(run, names, attributes);
  if (*info == before) return true;
  run.log().logBasic(fmt::format("renameExtensions renames {} to {} in {}", old,
                                 renamedIdentifier(run, old), path));
  return writePlist(file, *info, PlistFormat::kBinary, &reason) ||
         fail(error, file + ": " + reason.text());
}

}  // namespace

bool renamesExtensions(const Run& run) {
  return run.context.settings.renameExtensions && !isEmpty(run.formerBundleID) &&
         !isEmpty(run.replacementBundleID) && run.formerBundleID != run.replacementBundleID;
}

std::string renamedIdentifier(const Run& run, const std::string& identifier) {
  if (!renamesExtensions(run)) return identifier;
  const std::string& old = *run.formerBundleID;
  if (identifier != old && !identifier.starts_with(old + ".")) return identifier;
  return *run.replacementBundleID + identifier.substr(old.size());
}

bool renameBundles(const Run& run, const std::vector<std::string>& bundles, ErrorText* error) {
  if (!renamesExtensions(run)) return true;
  std::set<std::string> names = {*run.formerBundleID};
  for (const std::string& path : bundles) {
    const auto bundle = AppBundle::open(path);
    if (bundle) names.insert(stringForKeyOr(bundle->infoPlist(), kIdentifier, ""));
  }
  for (const std::string& path : bundles) {
    if (!renameBundle(run, path, names, error)) return false;
  }
  return true;
}

}  // namespace tovrek::converter
