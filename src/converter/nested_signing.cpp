// The code inside the app that Sign signs anew when the settings say so: frameworks, extensions and
// the watch app, from the inside out.
#include <fmt/format.h>

#include <algorithm>

#include "converter/code_signing.h"
#include "converter/common.h"
#include "converter/extension_fitting.h"
#include "converter/extensions.h"
#include "converter/nested_entitlements.h"
#include "converter/steps.h"
#include "formats/entitlement_keys.h"
#include "host/files.h"
#include "host/paths.h"
#include "package/signed_entitlements.h"

namespace tovrek::converter {
namespace {

constexpr char kProfileName[] = "embedded.mobileprovision";
constexpr const char* kExtensionFolders[] = {"PlugIns", "Extensions", "Watch"};
// The extensions and the watch app, inner ones first.
bool findNestedBundles(const std::string& appPath, std::vector<std::string>* bundles,
                       ErrorText* error) {
  for (const char* name : kExtensionFolders) {
    const std::string folder = joinPath(appPath, name);
    const auto collect = [&](const WalkedItem& item) {
      const std::string extension = pathExtension(item.relativePath);
      const bool isBundle = extension == "appex" || extension == "app";
      if (isBundle && item.kind == ItemKind::kDirectory) {
        bundles->push_back(joinPath(folder, item.relativePath));
      }
      return true;
    };
    if (!walkDirectoryIfThere(folder, collect, error)) return false;
  }
  std::ranges::reverse(*bundles);
  return true;
}

std::string identifierOf(const AppBundle& bundle) {
  return stringForKeyOr(bundle.infoPlist(), "CFBundleIdentifier", "");
}

// Whether a profile for `granted`, which may end in "*", is one for `identifier`.
bool covers(const std::string& granted, const std::string& identifier) {
  if (!granted.ends_with('*')) return granted == identifier;
  return identifier.starts_with(granted.substr(0, granted.size() - 1));
}

// The old entitlements as far as the profile grants them; `lost` gets the keys of the others.
PlistDictionary fittedTo(const PlistDictionary& profile, const PlistDictionary& old,
                         const std::string& identifier, std::vector<std::string>* lost) {
  PlistDictionary fitted;
  for (const auto& [key, value] : old) {
    const PlistValue* granted = profile.find(key);
    if (key == entitlement::kApplicationIdentifier) {
      fitted.set(key, identifier);
    } else if (granted) {
      fitted.set(key, isFixed(*granted) ? *granted : value);
    } else if (key != kStoreReports) {
      lost->push_back(key);
    }
  }
  return fitted;
}

// Puts the new profile and entitlements to match into a nested bundle, if the profile is for it.
bool fitNestedBundle(const Run& run, const std::string& path,
                     std::optional<std::string>* entitlementPath, ErrorText* error) {
  const auto bundle = AppBundle::open(path);
  const PlistDictionary* profile =
      run.profile ? dictionaryForKey(*run.profile, "Entitlements") : nullptr;
  if (!bundle || !profile) return true;
  const std::string granted = stringForKeyOr(*profile, entitlement::kApplicationIdentifier, "");
  const std::string bundleId = identifierOf(*bundle);
  const std::string identifier = prefixOf(granted) + "." + bundleId;
  const auto warn = [&](const std::string& text) {
    run.log().logWarning(fmt::format("{}: {}", path, text));
    warnIfEmpty(error, kExtensionsDoubtful);
  };
  if (run.bundle && !bundleId.starts_with(identifierOf(*run.bundle) + ".")) {
    warn(fmt::format("the identifier {} does not begin with that of the app", bundleId));
  }
  if (bundleId.empty() || !covers(granted, identifier)) {
    warn(
        fmt::format("the provisioning profile is not for {}; the extension keeps its own profile "
                    "and entitlements",
                    bundleId));
    return true;
  }

  const std::string ownProfile = joinPath(path, kProfileName);
  if (itemExistsNoFollow(ownProfile) &&
      !replaceByCopy(run.request.provisionProfile.value_or(""), ownProfile, error)) {
    return false;
  }
  ErrorText unanswered;
  const auto old = signedEntitlements(path, &unanswered);
  if (unanswered.isSet()) return fail(error, unanswered.text());
  if (!old || old->empty()) return true;
  std::vector<std::string> lost;
  std::string xml = serializePlist(fittedTo(*profile, *old, identifier, &lost), PlistFormat::kXml);
  for (const std::string& key : lost) {
    warn(fmt::format("the provisioning profile does not grant the entitlement {}", key));
  }
  const std::string oldPrefix =
      prefixOf(stringForKeyOr(*old, entitlement::kApplicationIdentifier, ""));
  if (!oldPrefix.empty()) xml = replaceAll(xml, oldPrefix, prefixOf(granted));
  *entitlementPath = joinPath(run.scratch(), "nested-entitlement.plist");
  return writeFileAtomically(**entitlementPath, xml, error);
}

bool signNestedBundle(const Run& run, const std::string& path, ErrorText* error) {
  std::optional<std::string> entitlementPath;
  if (!CodeSignFrameworks(run, path, error) ||
      !fitNestedBundle(run, path, &entitlementPath, error)) {
    return false;
  }
  run.log().logBasic("Code signing " + path + "...");
  return signAsNew(run, path, entitlementPath, error);
}

// The bundles that were fitted, and the frameworks that hold one of them or are signed anyway.
bool signAllFitted(const Run& run, bool frameworksToo, ErrorText* error) {
  const bool frameworks = frameworksToo || hasFitted(run, FittedPlace::kInFrameworks);
  if (frameworks && !(signFitted(run, FittedPlace::kInFrameworks, error) &&
                      CodeSignFrameworks(run, run.appPath, error))) {
    return failSigning(run.log(), "Codesign of embedded frameworks failed");
  }
  return signFitted(run, FittedPlace::kElsewhere, error)
             ? signAsNew(run, run.appPath, run.entitlementPath, error)
             : failSigning(run.log(), "Codesign of extensions failed");
}

}  // namespace

bool signAgain(Run& run, ErrorText* error) {
  const Settings& settings = run.context.settings;
  const bool all = settings.resignNested || run.isRenewal;
  if (!run.nested.empty()) return signAllFitted(run, all, error);
  std::vector<std::string> bundles;
  if ((all || settings.keepExtensionsOnSign) && !findNestedBundles(run.appPath, &bundles, error)) {
    return failSigning(run.log(), "Codesign of extensions failed");
  }
  if (!all && bundles.empty()) return CodeSign(run, run.appPath, run.entitlementPath, error);

  run.log().logBasic(fmt::format("{} signs the {}{}{} in {}",
                                 settings.resignNested ? "resignNested"
                                 : run.isRenewal       ? "resignWrapped"
                                                       : "keepExtensionsOnSign",
                                 all ? "frameworks" : "", all && !bundles.empty() ? " and " : "",
                                 bundles.empty() ? "" : "extensions", run.appPath));
  if (all && !CodeSignFrameworks(run, run.appPath, error)) {
    return failSigning(run.log(), "Codesign of embedded frameworks failed");
  }
  // Unlike a wrapped app, which may be tried out without them, a signed one that holds a broken
  // extension can only be refused by the device.
  for (const std::string& path : bundles) {
    if (!signNestedBundle(run, path, error)) {
      return failSigning(run.log(), "Codesign of extensions failed");
    }
  }
  return signAsNew(run, run.appPath, run.entitlementPath, error);
}

}  // namespace tovrek::converter
