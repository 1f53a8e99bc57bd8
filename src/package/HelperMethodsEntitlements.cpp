// Signed entitlements, provisioning profiles and keychain access groups.
#include <fmt/format.h>

#include "host/files.h"
#include "host/process.h"
#include "log/module_loggers.h"
#include "package/HelperMethods.h"

namespace tovrek {
namespace {

constexpr const char* kAccessGroups = "keychain-access-groups";

// The property list in a profile, from its XML declaration to the first end tag.
std::optional<std::string> embeddedPlistText(const std::string& profile) {
  constexpr std::string_view kDeclaration = R"(<?xml version="1.0" encoding="UTF-8"?>)";
  constexpr std::string_view kEnd = "</plist>";
  const size_t start = profile.find(kDeclaration);
  if (start == std::string::npos) return std::nullopt;
  const size_t end = profile.find(kEnd, start);
  if (end == std::string::npos) return std::nullopt;
  return profile.substr(start, end + kEnd.size() - start);
}

std::optional<PlistValue> valueForKeyPath(const PlistDictionary& root, std::string_view keyPath) {
  const PlistDictionary* dictionary = &root;
  for (;;) {
    const size_t dot = keyPath.find('.');
    const PlistValue* value = dictionary->find(keyPath.substr(0, dot));
    if (value == nullptr) return std::nullopt;
    if (dot == std::string_view::npos) return *value;
    dictionary = value->dictionary();
    if (dictionary == nullptr) return std::nullopt;
    keyPath.remove_prefix(dot + 1);
  }
}

bool listsAccessGroup(const PlistValue* groups, const std::string& group) {
  const PlistValue::Array* list = groups == nullptr ? nullptr : groups->array();
  if (list == nullptr) return false;
  for (const PlistValue& entry : *list) {
    const std::string* name = entry.string();
    if (name != nullptr && name->find(group) != std::string::npos) return true;
  }
  return false;
}

}  // namespace

std::optional<PlistDictionary> HelperMethods::signedEntitlements(const std::string& path) {
  Command command;
  command.argv = {"/usr/bin/codesign", "-d", "--entitlements", ":-", path};
  Outcome outcome;
  if (!runProcess(command, &outcome) || outcome.status != 0) {
    Global_ManifestLib_logger().logWarning(
        "Code signature may not exist. Using all default to resign the app.");
    return std::nullopt;
  }
  ErrorText error;
  const std::optional<PlistValue> plist = parsePlist(outcome.output, &error);
  if (!plist) {
    Global_ManifestLib_logger().logError(fmt::format("Unable to parse plist - {}", error.text()));
    return std::nullopt;
  }
  const PlistDictionary* dictionary = plist->dictionary();
  return dictionary == nullptr ? std::nullopt : std::optional(*dictionary);
}

std::optional<PlistValue> HelperMethods::ReadEmbeddedEntitlements(const std::string& path,
                                                                  std::string_view key) {
  const std::optional<PlistDictionary> entitlements = signedEntitlements(path);
  const PlistValue* value = entitlements ? entitlements->find(key) : nullptr;
  return value == nullptr ? std::nullopt : std::optional(*value);
}

std::optional<PlistValue> HelperMethods::ReadEmbeddedProfile(const std::string& path,
                                                             std::string_view keyPath) {
  ErrorText error;
  std::string profile;
  if (!readFile(path, &profile, &error)) {
    Global_ManifestLib_logger().logError(error.text());
    return std::nullopt;
  }
  const std::optional<std::string> text = embeddedPlistText(profile);
  const std::optional<PlistValue> plist = text ? parsePlist(*text) : std::nullopt;
  if (!plist || plist->dictionary() == nullptr) {
    Global_ManifestLib_logger().logError(fmt::format("Could not read from {}", path));
    return std::nullopt;
  }
  return valueForKeyPath(*plist->dictionary(), keyPath);
}

bool HelperMethods::checkKeychainAccessGroup(const std::string& group,
                                             const std::string& entitlementsFile,
                                             ErrorText* error) {
  const auto refuse = [error](const std::string& text) {
    Global_ManifestLib_logger().logError(text);
    return fail(error, text);
  };
  if (!fileExists(entitlementsFile)) {
    return refuse("CheckKeychainAccessGroup: Entitlements file not found.");
  }
  const std::optional<PlistDictionary> entitlements = readPlistDictionary(entitlementsFile);
  if (!entitlements) return refuse(fmt::format("ERROR: unable to read {}", entitlementsFile));

  const bool found = listsAccessGroup(entitlements->find(kAccessGroups), group);
  Global_ManifestLib_logger().logBasic(
      found ? "CheckKeychainAccessGroup: Access group found in the entitlements file."
            : "CheckKeychainAccessGroup: No access groups found in the entitlements file.");
  return found;
}

bool HelperMethods::checkKeychainAccessGroupInAppBundlePath(const std::string& group,
                                                            const std::string& appBundlePath) {
  const std::optional<PlistValue> groups = ReadEmbeddedEntitlements(appBundlePath, kAccessGroups);
  const bool found = listsAccessGroup(groups ? &*groups : nullptr, group);
  Global_ManifestLib_logger().logBasic(
      found ? "CheckKeychainAccessGroup: Access group found in the app bundle."
            : "CheckKeychainAccessGroup: No access groups found in the app bundle.");
  return found;
}

}  // namespace tovrek
