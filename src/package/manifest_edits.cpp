#include "package/manifest_edits.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vector>

#include "formats/WEX_Base64.h"
#include "host/files.h"

namespace tovrek {
namespace {

constexpr char kMobileApp[] = "/MobileAppPackage/MobileApp";

// An element that the user may set, whether or not the builder made it.
struct PlatformValue {
  const char* name;
  const char* serverKey;
  const std::optional<std::string>* value;
  const char* failure;

  std::string xpath() const { return fmt::format("//{}[@CRKW='{}']", name, serverKey); }
};

bool failed(const WrapperLogger& logger, const std::string& text) {
  logger.logError(text);
  return false;
}

// Takes out of the list what no option gives, and empty values that there is no element for.
void keepOthers(const XmlDocument& document, std::vector<PlatformValue>* values,
                const WrapperLogger& logger) {
  std::vector<std::string_view> kept;
  std::erase_if(*values, [&](const PlatformValue& entry) {
    const auto found = document.find(entry.xpath());
    const bool stays = !*entry.value || ((*entry.value)->empty() && found && found->empty());
    if (stays) kept.push_back(entry.name);
    return stays;
  });
  if (kept.empty()) return;
  logger.logBasic(fmt::format("keepPlistLimits leaves {} as built", fmt::join(kept, ", ")));
}

std::optional<XmlDocument> loadManifest(const std::string& path, const WrapperLogger& logger) {
  ErrorText reason;
  auto document = XmlDocument::readFile(path, &reason);
  if (!document) {
    failed(logger, fmt::format("Could not read manifest file {}: {}", path, reason.text()));
  } else if (reason.isSet()) {
    logger.logWarning(
        fmt::format("{} is damaged and was read as far as it could be: {}", path, reason.text()));
  }
  return document;
}

bool writeManifest(const XmlDocument& document, const std::string& path, const std::string& failure,
                   const WrapperLogger& logger) {
  ErrorText reason;
  if (document.save(path, XmlLayout::kCompact, &reason)) return true;
  failed(logger, fmt::format("{}: {}", path, reason.text()));
  return failed(logger, failure);
}

// Loads the manifest, sets the one node at `xpath` and writes it back.
bool setInManifest(const std::string& path, const std::string& xpath,
                   const std::optional<std::string>& value, const std::string& setFailure,
                   const std::string& writeFailure, const WrapperLogger& logger) {
  auto document = loadManifest(path, logger);
  if (!document) return false;
  if (!ManifestUpdateInternalPurposeOnly(*document, xpath, value)) {
    return failed(logger, setFailure);
  }
  return writeManifest(*document, path, writeFailure, logger);
}

}  // namespace

bool UpdateManifestFileAsPerUserSelection(const std::string& manifestPath, const ManifestData& data,
                                          const WrapperLogger& logger) {
  auto document = loadManifest(manifestPath, logger);
  if (!document) return false;
  std::vector<PlatformValue> values = {
      {"MinPlatform", "MamMinPlatform", &data.minPlatform,
       "Could not update application Minium Platform"},
      {"MaxPlatform", "MamMaxPlatform", &data.maxPlatform,
       "Could not update application Maximum Platform"},
      {"ExcludeDeviceTypes", "MamExcludeDeviceTypes", &data.excludedDevices,
       "Could not update application Excluded Device Types"},
  };
  if (data.keepsOthers) keepOthers(*document, &values, logger);
  for (const PlatformValue& entry : values) {
    const auto found = document->find(entry.xpath());
    if (found && found->empty()) {
      ManifestUpdateAddElementInternalPurposeOnly(*document, kMobileApp, *entry.value, entry.name,
                                                  entry.serverKey);
    }
  }
  const bool renamed = data.friendlyName && !data.friendlyName->empty();
  if (renamed && !ManifestUpdateInternalPurposeOnly(
                     *document, fmt::format("{}/FriendlyName", kMobileApp), data.friendlyName)) {
    return failed(logger, "Could not update application Friendly Name");
  }
  for (const PlatformValue& entry : values) {
    if (!ManifestUpdateInternalPurposeOnly(*document, entry.xpath(), *entry.value)) {
      return failed(logger, entry.failure);
    }
  }
  return writeManifest(*document, manifestPath, "Could not update manifest file", logger);
}

bool UpdateAppStoreURL(const std::string& manifestPath, const std::string& value,
                       const WrapperLogger& logger) {
  return setInManifest(
      manifestPath, "//AppStoreUrl[@CRKW='MamPublicStoreURL']", WEX_Base64::encode(value),
      "Could not update application ,MamPublicStoreURL not avaliable in manifest file",
      "Could not update manifest file", logger);
}

bool removeAppStoreURL(const std::string& manifestPath, const WrapperLogger& logger) {
  auto document = loadManifest(manifestPath, logger);
  if (!document) return false;
  if (!ManifestUpdateInternalPurposeOnly(*document, "//AppStoreUrl[@CRKW='MamPublicStoreURL']",
                                         logger)) {
    return failed(logger, "Could not update application, remove MamPublicStoreURL failed.");
  }
  return writeManifest(*document, manifestPath, "Could not update manifest file. write failed.",
                       logger);
}

bool updateManifestFile(const std::string& manifestPath, const std::string& bundleFileName,
                        const WrapperLogger& logger) {
  return setInManifest(manifestPath, "//BundleFile", bundleFileName,
                       "Could not update application, BundleFile.",
                       "Could not update manifest file.  write failed.", logger);
}

bool updateAppWEXProperty(const std::string& manifestPath, const std::string& xpath,
                          const std::optional<std::string>& value, const WrapperLogger& logger) {
  return setInManifest(
      manifestPath, xpath, value,
      fmt::format("Could not update application property with Value {} ", value.value_or("(null)")),
      "Could not update manifest file", logger);
}

bool ModifyPackageSize(const std::string& manifestPath, const std::string& ipaPath,
                       const std::optional<std::string>& dummySize, const WrapperLogger& logger) {
  constexpr uint64_t kStoreAppSize = 2000;
  auto document = loadManifest(manifestPath, logger);
  if (!document) return false;
  const auto size = dummySize ? fileSize(ipaPath) : std::optional(kStoreAppSize);
  if (!size) return failed(logger, "Error reading ipa file size");
  if (!ManifestUpdateInternalPurposeOnly(*document, "//PackageSize[@CRKW='MamPackageSize']",
                                         fmt::format("{}", *size))) {
    return failed(logger, "The manifest.xml file has multiple entry of PackageSize element");
  }
  return writeManifest(*document, manifestPath, "Could not update manifest file", logger);
}

bool ManifestUpdateInternalPurposeOnly(XmlDocument& document, const std::string& xpath,
                                       const std::optional<std::string>& value) {
  auto nodes = document.find(xpath);
  if (!nodes || nodes->size() != 1) return false;
  nodes->front().setText(value.value_or(""));
  return true;
}

bool ManifestUpdateInternalPurposeOnly(XmlDocument& document, const std::string& xpath,
                                       const WrapperLogger& logger) {
  auto nodes = document.find(xpath);
  if (nodes && nodes->size() == 1) {
    nodes->front().remove();
    return true;
  }
  failed(logger, fmt::format("The manifest.xml file failed to locate node. xmlDoc={}, xpathStr={}",
                             document.serialize(XmlLayout::kCompact), xpath));
  return failed(
      logger, fmt::format("Manifest update: matchingNodes count = {}.", nodes ? nodes->size() : 0));
}

bool ManifestUpdateAddElementInternalPurposeOnly(XmlDocument& document,
                                                 const std::string& writePath,
                                                 const std::optional<std::string>& value,
                                                 const std::string& name,
                                                 const std::string& attribute) {
  auto parents = document.find(writePath);
  if (!parents || parents->size() != 1) return false;
  XmlElement element(name, value.value_or(""));
  element.attribute("CRKW", attribute);
  parents->front().append(element);
  return true;
}

}  // namespace tovrek
