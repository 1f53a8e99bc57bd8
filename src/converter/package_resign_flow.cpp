#include "converter/package_resign_flow.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <set>

#include "converter/common.h"
#include "converter/extension_fitting.h"
#include "converter/flow.h"
#include "converter/result_check.h"
#include "converter/steps.h"
#include "formats/XmlDocument.h"
#include "host/clock.h"
#include "host/files.h"
#include "host/host_info.h"
#include "log/SystemLog.h"
#include "package/archive_folder.h"
#include "package/embedded_profile.h"
#include "package/manifest_edits.h"

namespace tovrek::converter {
namespace {

// A package that we made has this one; else it is the first, as for every reader of packages.
std::string manifestIn(const std::string& folder) {
  const std::string usual = joinPath(folder, "manifest.xml");
  const auto first = firstEntryWithExtension(folder, "xml");
  return isPlainFile(usual) || !first ? usual : joinPath(folder, *first);
}

std::set<std::string> languageFilesOf(const std::string& manifest) {
  std::set<std::string> names;
  const auto document = XmlDocument::readFile(manifest);
  const auto nodes =
      document ? document->find("/MobileAppPackage/Policies/Languages/LanguageFile") : std::nullopt;
  if (!nodes) return names;
  for (const XmlNode& node : *nodes) names.insert(trimmed(node.text()));
  return names;
}

// --- Steps ---

// Everything of the unpacked package but the app goes over as it is.
bool moveMetadata(Run& run, ErrorText* error) {
  const std::string& from = run.scratch();
  const std::string& to = run.packageDir();
  ErrorText reason;
  const auto names = listDirectory(from, &reason);
  if (!names) return failToCopy(from, to, reason, error);
  for (const std::string& name : *names) {
    const std::string extension = toLowerAscii(pathExtension(name));
    if (extension != "xml" && extension != "png") continue;
    const std::string source = joinPath(from, name);
    const std::string target = joinPath(to, name);
    systemLog(fmt::format("Copying file {} to {} ", source, target));
    if (!moveItem(source, target, &reason)) return failToCopy(source, target, reason, error);
  }
  return true;
}

// Those that the manifest lists, where a setting says so.
bool moveLanguageFiles(Run& run, ErrorText* error) {
  if (!run.context.settings.refreshOnResign) return true;
  const std::string& from = run.scratch();
  const std::string& to = run.packageDir();
  const std::set<std::string> listed = languageFilesOf(manifestIn(to));
  ErrorText reason;
  const auto names = listDirectory(from, &reason);
  if (!names) return failToCopy(from, to, reason, error);
  for (const std::string& name : *names) {
    const bool isOne = listed.contains(name) || name.starts_with("strings-");
    // These two belong to the app.
    const bool isOfApp = name.starts_with("iTunes") || pathExtension(name) == "ipa";
    if (!isOne || isOfApp || !isPlainFile(joinPath(from, name))) continue;
    const std::string source = joinPath(from, name);
    const std::string target = joinPath(to, name);
    if (!moveItem(source, target, &reason)) return failToCopy(source, target, reason, error);
    run.log().logBasic("refreshOnResign keeps the language file " + name);
  }
  return true;
}

// Out of the way, as the new one gets its name; what stays unchanged is packed as it is there.
bool removeOldIpa(Run& run, ErrorText* /*error*/) {
  const std::string& old = run.package->ipaPath();
  run.oldIpa = joinPath(run.scratch(), uniqueString());
  if (moveItem(old, run.oldIpa)) return true;
  run.oldIpa.clear();
  removeItem(old);
  return true;
}

// Our library where the app is wrapped, else the SDK's fingerprint.
bool signLibraryOrStampFingerprint(Run& run, ErrorText* error) {
  if (!run.package->isSDKApp()) return signLibrary(run, error);
  if (run.bundle) return inspectApp(run, error) && stampFingerprint(run, error);
  run.log().logError("Failed to get the input app NSBundle object.");
  return false;
}

// Date, expiry and size, where a setting says so.
bool renewManifest(Run& run, ErrorText* /*error*/) {
  if (!run.context.settings.refreshOnResign) return true;
  const WrapperLogger& log = run.context.loggers.manifest;
  const std::string& folder = run.packageDir();
  const std::string manifest = manifestIn(folder);
  const std::string date = dateDescription(currentTime());
  const std::string expiry = profileExpiry(run.appPath, log).value_or(date);
  const auto set = [&](const char* xpath, const std::string& value) {
    return updateAppWEXProperty(manifest, xpath, value, log);
  };
  const std::pair<const char*, bool> elements[] = {
      {"Date", set("/MobileAppPackage/PackageInfo/Date", date)},
      {"CertExpires", set("/MobileAppPackage/PackageInfo/CertExpires", expiry)},
      {"PackageSize",
       ModifyPackageSize(manifest, joinPath(folder, run.package->ipaName()), "", log)}};
  std::vector<std::string_view> renewed;
  for (const auto& [name, succeeded] : elements) {
    if (succeeded) {
      renewed.push_back(name);
    } else {
      run.log().logWarning(fmt::format("refreshOnResign could not renew {} in {}", name,
                                       lastPathComponent(manifest)));
    }
  }
  if (renewed.empty()) return true;
  run.log().logBasic(fmt::format("refreshOnResign renews {} in {}", fmt::join(renewed, ", "),
                                 lastPathComponent(manifest)));
  return true;
}

}  // namespace

bool resignPackage(Run& run, ErrorText* error) {
  return takeSteps(
      {
          unpackPackage,
          emptyPackageFolder,
          moveMetadata,
          moveLanguageFiles,
          removeOldIpa,
          // The profile is matched against the identifier that the app has.
          takeBundleIdentifiers,
          readProfile,
          readProfilesFolder,
          makeEntitlements,
          placeProfile,
          refuseBadLinks,
          fitExtensions,
          dropOldSignature,
          signLibraryOrStampFingerprint,
          signAgain,
          checkResult,
          writeIpaOfPackage,
          renewManifest,
          writePackage,
      },
      run, error);
}

}  // namespace tovrek::converter
