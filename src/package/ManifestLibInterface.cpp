#include "package/ManifestLibInterface.h"

#include <fmt/format.h>

#include "formats/XmlDocument.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "package/MobileAppPackage.h"
#include "package/app_finishing.h"
#include "package/bundle_icons.h"
#include "package/icon_sizes.h"
#include "package/manifest_edits.h"

namespace tovrek {
namespace {

XmlElement policiesElement(const std::vector<std::string>& languageFiles) {
  XmlElement policies("Policies");
  policies.append(XmlElement("PolicyMetadata", "policy_metadata.xml"));
  if (languageFiles.empty()) return policies;
  XmlElement languages("Languages");
  for (const std::string& file : languageFiles) languages.append(XmlElement("LanguageFile", file));
  policies.append(std::move(languages));
  return policies;
}

}  // namespace

std::string manifestStoreUrl(const std::optional<std::string>& appStoreUrl) {
  const std::string url = trimmed(appStoreUrl.value_or(""));
  return url.empty() ? ORVANE_DEFAULT_APPSTOREURL : url;
}

int ManifestLibInterface::refuse(const char* section) const {
  context_.loggers.toolkit.logError(
      fmt::format("Error:- We are not able to add {} section into manifest XML file", section));
  return -1;
}

int ManifestLibInterface::buildManifestXml() {
  const WrapperLogger& logger = context_.loggers.manifest;
  const MobileAppPackage package(appInfo_, logger);
  auto packageInfo = package.generatePackageElements();
  if (!packageInfo) return refuse("PackageInfo");

  const std::optional<MobileApp> finished = finishApp(appInfo_, logger, context_.showsProgress);
  auto mobileApp = finished ? package.generateMobileAppElement(*finished) : std::nullopt;
  if (!mobileApp) return refuse("MobileApp");

  XmlElement root("MobileAppPackage");
  root.append(std::move(*packageInfo));
  root.append(std::move(*mobileApp));
  root.append(policiesElement(files_.policyLanguageFiles));
  if (userName().find_first_not_of("0123456789") == std::string::npos) {
    logger.logWarning("manifest.xml names its maker by number, as the system tells no name");
  }
  ErrorText reason;
  if (!XmlDocument(root).save(files_.manifestXMLPath, XmlLayout::kCompact, &reason)) {
    logger.logError(fmt::format("{}: {}", files_.manifestXMLPath, reason.text()));
  }
  return 0;
}

int ManifestLibInterface::copyIconFiles() {
  const WrapperLogger& logger = context_.loggers.toolkit;
  const auto& bundle = appInfo_.appBundle;
  if (!bundle) {
    logger.logError("ERROR! CopyIconFiles: Cannot find appBundle.");
    return -1;
  }
  const auto names = readIconsDetailsFromAppBundle(*bundle, context_.loggers.manifest);
  if (!names) {
    logger.logError("WARNING! CopyIconFiles: Cannot find any icon files from Info.plist.");
    return -1;
  }
  int result = -1;
  auto entries = ManifestIcons::open(files_.outPackagePath, context_.loggers.manifest);
  for (const std::string& name : *names) {
    if (copyIcon(name, entries)) {
      result = 0;
    } else {
      logger.logError(
          fmt::format("ERROR! CopyIconFiles: Could not convert iOS icon PNG files to Standard "
                      "format, or file {} does not exists",
                      name));
    }
  }
  if (entries) entries->save();
  return result;
}

bool ManifestLibInterface::copyIcon(const std::string& name,
                                    std::optional<ManifestIcons>& entries) {
  const std::string& folder = files_.outPackagePath;
  const auto source = appInfo_.appBundle->resourcePath(name, "");
  if (!source || !context_.icons.ConvertCopyIconFile(folder, *source, name, name)) return false;
  const std::string target = joinPath(folder, name);
  ErrorText reason;
  // The converter does not tell of a plain copy that failed.
  if (!isPlainFile(target) && !copyItem(*source, target, &reason)) {
    context_.loggers.toolkit.logWarning(
        fmt::format("The icon {} is missing in the package: {}", name, reason.text()));
  }
  if (!entries) return true;
  reason.clear();
  entries->setSize(name, LoadIconImage(target, &reason));
  if (reason.isSet()) {
    context_.loggers.toolkit.logWarning(
        fmt::format("The size of the icon {} is missing in the manifest: {}", name, reason.text()));
  }
  return true;
}

bool ManifestLibInterface::GeneratePackageSizeWithIpaFile(const std::string& ipaPath) {
  const std::string& url = appInfo_.appStoreURL;
  return ModifyPackageSize(files_.manifestXMLPath, ipaPath,
                           url.empty() ? std::optional(url) : std::nullopt,
                           context_.loggers.manifest);
}

}  // namespace tovrek
