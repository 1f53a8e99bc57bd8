#include "converter/extension_fitting.h"

#include <fmt/format.h>

#include <algorithm>

#include "converter/code_signing.h"
#include "converter/common.h"
#include "converter/extension_names.h"
#include "converter/extensions.h"
#include "converter/nested_entitlements.h"
#include "converter/signing_certificate.h"
#include "device/installation.h"
#include "host/clock.h"
#include "host/files.h"
#include "package/signed_entitlements.h"

namespace tovrek::converter {
namespace {

bool isIn(const Run& run, const std::string& path, FittedPlace place) {
  const bool inFrameworks = path.starts_with(joinPath(run.appPath, "Frameworks/"));
  return inFrameworks == (place == FittedPlace::kInFrameworks);
}

class ExtensionFitter {
 public:
  explicit ExtensionFitter(Run& run) : run_(run), signer_(signingCertificates(run)) {
    const auto& own = run.request.provisionProfile;
    if (own && run.profile) {
      const device::Profile profile = device::profileOf(*run.profile);
      forStore_ = profile.isForStore();
      run_.profiles.push_back({*own, profile});
    }
  }
  bool fit(const std::string& path, ErrorText* error);

 private:
  const device::StoredProfile* choose(const std::string& identifier) const;
  bool equip(const device::StoredProfile& chosen, const std::string& identifier,
             NestedBundle* bundle, ErrorText* error) const;

  Run& run_;
  const SigningCertificates signer_;
  bool forStore_ = false;
};

const device::StoredProfile* ExtensionFitter::choose(const std::string& identifier) const {
  device::ProfileWish wish;
  wish.bundleIdentifier = identifier;
  wish.isSigner = [&](const Certificate& certificate) { return signer_.include(certificate); };
  wish.forStore = forStore_;
  wish.now = currentTime();
  return device::bestProfile(run_.profiles, wish);
}

bool ExtensionFitter::fit(const std::string& path, ErrorText* error) {
  const auto opened = AppBundle::open(path);
  const std::string identifier =
      opened ? stringForKeyOr(opened->infoPlist(), "CFBundleIdentifier", "") : "";
  NestedBundle bundle{path, std::nullopt};
  if (const device::StoredProfile* chosen = choose(identifier)) {
    run_.log().logBasic(fmt::format("profilesFolder fits {} ({}) with {} ({}), until {}", path,
                                    identifier, chosen->path, chosen->profile.name,
                                    dateDescription(chosen->profile.expires)));
    if (!equip(*chosen, identifier, &bundle, error)) return false;
  } else {
    run_.log().logWarning(
        fmt::format("{}: no valid provisioning profile is for {} and lists the certificate; the "
                    "bundle keeps its own profile and entitlements",
                    path, identifier));
    fail(error, kExtensionsDoubtful);
  }
  run_.nested.push_back(std::move(bundle));
  return true;
}

bool ExtensionFitter::equip(const device::StoredProfile& chosen, const std::string& identifier,
                            NestedBundle* bundle, ErrorText* error) const {
  if (!replaceByCopy(chosen.path, joinPath(bundle->path, device::kEmbeddedProfile), error)) {
    return false;
  }
  std::vector<std::string> lost;
  const auto renamed = [&](const std::string& name) { return renamedIdentifier(run_, name); };
  const PlistDictionary entitlements = nestedEntitlements(
      chosen.profile, signedEntitlements(bundle->path).value_or(PlistDictionary()), identifier,
      renamed, &lost);
  for (const std::string& key : lost) {
    run_.log().logWarning(
        fmt::format("{}: the provisioning profile does not grant all of the entitlement {}; what "
                    "it does not grant is left out",
                    bundle->path, key));
  }
  bundle->entitlementPath =
      joinPath(run_.scratch(), fmt::format("nested-entitlement-{}.plist", run_.nested.size()));
  return writePlist(*bundle->entitlementPath, entitlements, PlistFormat::kXml, error);
}

}  // namespace

bool fitsExtensions(const Run& run) {
  return !run.context.settings.profilesFolder.empty() || renamesExtensions(run);
}

bool readProfilesFolder(Run& run, ErrorText* error) {
  const std::string& folder = run.context.settings.profilesFolder;
  if (folder.empty()) return true;
  std::vector<std::string> unreadable;
  ErrorText reason;
  if (!device::readProfiles(folder, &run.profiles, &unreadable, &reason)) {
    const std::string text =
        fmt::format("ERROR: The profiles in {} cannot be read: {}", folder, reason.text());
    run.log().logError(text);
    return fail(error, text);
  }
  for (const std::string& text : unreadable) run.log().logWarning("profilesFolder: " + text);
  return true;
}

bool fitExtensions(Run& run, ErrorText* error) {
  if (!fitsExtensions(run)) return true;
  std::vector<std::string> bundles;
  if (!device::findProfiledBundles(run.appPath, &bundles, error)) return false;
  if (bundles.empty()) return true;
  if (!renameBundles(run, bundles, error)) return false;
  ExtensionFitter fitter(run);
  return std::ranges::all_of(bundles,
                             [&](const std::string& path) { return fitter.fit(path, error); });
}

bool hasFitted(const Run& run, FittedPlace place) {
  return std::ranges::any_of(
      run.nested, [&](const NestedBundle& bundle) { return isIn(run, bundle.path, place); });
}

bool signFitted(const Run& run, FittedPlace place, ErrorText* error) {
  for (const NestedBundle& bundle : run.nested) {
    if (!isIn(run, bundle.path, place)) continue;
    if (!CodeSignFrameworks(run, bundle.path, error)) return false;
    run.log().logBasic("Code signing " + bundle.path + "...");
    if (!signAsNew(run, bundle.path, bundle.entitlementPath, error)) return false;
  }
  return true;
}

}  // namespace tovrek::converter
