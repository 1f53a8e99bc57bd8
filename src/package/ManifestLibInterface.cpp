#include "package/ManifestLibInterface.h"

#include <fmt/format.h>

#include "formats/XmlDocument.h"
#include "host/paths.h"
#include "icons/IconConverter.h"
#include "package/HelperMethods.h"
#include "package/MobileAppPackage.h"

namespace tovrek {
namespace {

std::string storeUrlFor(const PackageDetails& details) {
  if (!details.isPublished) return "";
  const std::string url = trimmed(details.appStoreUrl.value_or(""));
  return url.empty() ? ORVANE_DEFAULT_APPSTOREURL : url;
}

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

ManifestLibInterface::ManifestLibInterface(const std::string& ipaFileName,
                                           const std::optional<AppBundle>& appBundle,
                                           const std::string& outputPackagePath,
                                           const std::vector<std::string>& policyLanguageFiles,
                                           const std::string& manifestXMLPath,
                                           const std::string& appMode, WrapperLogger& logger,
                                           const PackageDetails& details)
    : outPackagePath_(outputPackagePath),
      logger_(logger),
      policyLanguageFiles_(policyLanguageFiles),
      manifestXMLPath_(manifestXMLPath),
      manifestAppInfo_{ipaFileName,
                       appBundle,
                       storeUrlFor(details),
                       appMode,
                       HelperMethods::detectIntuneInAppBundle(appBundle ? appBundle->path() : "",
                                                              details.entitlementsPath),
                       details} {}

int ManifestLibInterface::buildManifestXml() {
  const MobileAppPackage package(manifestAppInfo_);
  XmlElement root("MobileAppPackage");
  auto packageInfo = package.generatePackageElements();
  if (!packageInfo) {
    logger_.logError("Error:- We are not able to add PackageInfo section into manifest XML file");
    return -1;
  }
  root.append(std::move(*packageInfo));
  auto mobileApp = package.generateMobileAppElement();
  if (!mobileApp) {
    logger_.logError("Error:- We are not able to add MobileApp section into manifest XML file");
    return -1;
  }
  root.append(std::move(*mobileApp));
  root.append(policiesElement(policyLanguageFiles_));
  XmlDocument(root).save(manifestXMLPath_, XmlLayout::kCompact);
  return 0;
}

int ManifestLibInterface::copyIconFiles() {
  const auto& bundle = manifestAppInfo_.appBundle;
  if (!bundle) {
    logger_.logError("ERROR! CopyIconFiles: Cannot find appBundle.");
    return -1;
  }
  const auto names = HelperMethods::readIconsDetailsFromAppBundle(*bundle);
  if (!names) {
    logger_.logError("WARNING! CopyIconFiles: Cannot find any icon files from Info.plist.");
    return -1;
  }
  int result = -1;
  for (const std::string& name : *names) {
    if (copyIcon(name)) {
      result = 0;
    } else {
      logger_.logError(
          fmt::format("ERROR! CopyIconFiles: Could not convert iOS icon PNG files to Standard "
                      "format, or file {} does not exists",
                      name));
    }
  }
  return result;
}

bool ManifestLibInterface::copyIcon(const std::string& name) {
  const auto source = manifestAppInfo_.appBundle->resourcePath(name, "");
  if (!source || !ConvertCopyIconFile(outPackagePath_, *source, name, name)) return false;
  HelperMethods::ModifyIconFileRes(outPackagePath_, name, joinPath(outPackagePath_, name));
  return true;
}

void ManifestLibInterface::GeneratePackageSizeWithIpaFile(const std::string& ipaPath) {
  const std::string& url = manifestAppInfo_.appStoreURL;
  HelperMethods::ModifyPackageSize(manifestXMLPath_, ipaPath,
                                   url.empty() ? std::optional(url) : std::nullopt);
}

}  // namespace tovrek
