// Operations of HelperMethods that edit an existing manifest. Each edit loads the file, changes it
// and writes it back whole; one that fails leaves the file as it was.
#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vector>

#include "formats/XmlDocument.h"
#include "host/files.h"
#include "log/module_loggers.h"
#include "package/HelperMethods.h"
#include "package/ManifestData.h"
#include "package/WEX_Base64.h"

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

bool failed(const std::string& text) {
  Global_ManifestLib_logger().logError(text);
  return false;
}

// Takes out of the list what no option gives, and empty values that there is no element for.
void keepOthers(const XmlDocument& document, std::vector<PlatformValue>* values) {
  std::vector<std::string_view> kept;
  std::erase_if(*values, [&](const PlatformValue& entry) {
    const auto found = document.find(entry.xpath());
    const bool stays = !*entry.value || ((*entry.value)->empty() && found && found->empty());
    if (stays) kept.push_back(entry.name);
    return stays;
  });
  if (kept.empty()) return;
  Global_ManifestLib_logger().logBasic(
      fmt::format("keepPlistLimits leaves {} as built", fmt::join(kept, ", ")));
}

std::optional<XmlDocument> loadManifest(const std::string& path) {
  ErrorText reason;
  auto document = XmlDocument::readFile(path, &reason);
  if (!document) failed(fmt::format("Could not read manifest file {}: {}", path, reason.text()));
  return document;
}

bool writeManifest(const XmlDocument& document, const std::string& path,
                   const std::string& failure) {
  return document.save(path, XmlLayout::kCompact) || failed(failure);
}

// Loads the manifest, sets the one node at `xpath` and writes it back.
bool setInManifest(const std::string& path, const std::string& xpath,
                   const std::optional<std::string>& value, const std::string& setFailure,
                   const std::string& writeFailure) {
  auto document = loadManifest(path);
  if (!document) return false;
  if (!HelperMethods::ManifestUpdateInternalPurposeOnly(*document, xpath, value)) {
    return failed(setFailure);
  }
  return writeManifest(*document, path, writeFailure);
}

}  // namespace

bool HelperMethods::UpdateManifestFileAsPerUserSelection(const std::string& manifestPath,
                                                         const ManifestData& data) {
  auto document = loadManifest(manifestPath);
  if (!document) return false;
  std::vector<PlatformValue> values = {
      {"MinPlatform", "MamMinPlatform", &data.minPlatform,
       "Could not update application Minium Platform"},
      {"MaxPlatform", "MamMaxPlatform", &data.maxPlatform,
       "Could not update application Maximum Platform"},
      {"ExcludeDeviceTypes", "MamExcludeDeviceTypes", &data.excludedDevices,
       "Could not update application Excluded Device Types"},
  };
  if (data.keepsOthers) keepOthers(*document, &values);
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
    return failed("Could not update application Friendly Name");
  }
  for (const PlatformValue& entry : values) {
    if (!ManifestUpdateInternalPurposeOnly(*document, entry.xpath(), *entry.value)) {
      return failed(entry.failure);
    }
  }
  return writeManifest(*document, manifestPath, "Could not update manifest file");
}

bool HelperMethods::UpdateAppStoreURL(const std::string& manifestPath, const std::string& value) {
  return setInManifest(
      manifestPath, "//AppStoreUrl[@CRKW='MamPublicStoreURL']", WEX_Base64::encode(value),
      "Could not update application ,MamPublicStoreURL not avaliable in manifest file",
      "Could not update manifest file");
}

bool HelperMethods::removeAppStoreURL(const std::string& manifestPath) {
  auto document = loadManifest(manifestPath);
  if (!document) return false;
  if (!ManifestUpdateInternalPurposeOnly(*document, "//AppStoreUrl[@CRKW='MamPublicStoreURL']")) {
    return failed("Could not update application, remove MamPublicStoreURL failed.");
  }
  return writeManifest(*document, manifestPath, "Could not update manifest file. write failed.");
}

bool HelperMethods::updateManifestFile(const std::string& manifestPath,
                                       const std::string& bundleFileName) {
  return setInManifest(manifestPath, "//BundleFile", bundleFileName,
                       "Could not update application, BundleFile.",
                       "Could not update manifest file.  write failed.");
}

bool HelperMethods::updateAppWEXProperty(const std::string& manifestPath, const std::string& xpath,
                                         const std::optional<std::string>& value) {
  return setInManifest(
      manifestPath, xpath, value,
      fmt::format("Could not update application property with Value {} ", value.value_or("(null)")),
      "Could not update manifest file");
}

bool HelperMethods::ModifyPackageSize(const std::string& manifestPath, const std::string& ipaPath,
                                      const std::optional<std::string>& dummySize) {
  constexpr uint64_t kStoreAppSize = 2000;
  auto document = loadManifest(manifestPath);
  if (!document) return false;
  const auto size = dummySize ? fileSize(ipaPath) : std::optional(kStoreAppSize);
  if (!size) return failed("Error reading ipa file size");
  if (!ManifestUpdateInternalPurposeOnly(*document, "//PackageSize[@CRKW='MamPackageSize']",
                                         fmt::format("{}", *size))) {
    return failed("The manifest.xml file has multiple entry of PackageSize element");
  }
  return document->save(manifestPath, XmlLayout::kCompact);
}

bool HelperMethods::ManifestUpdateInternalPurposeOnly(XmlDocument& document,
                                                      const std::string& xpath,
                                                      const std::optional<std::string>& value) {
  auto nodes = document.find(xpath);
  if (!nodes || nodes->size() != 1) return false;
  nodes->front().setText(value.value_or(""));
  return true;
}

bool HelperMethods::ManifestUpdateInternalPurposeOnly(XmlDocument& document,
                                                      const std::string& xpath) {
  auto nodes = document.find(xpath);
  if (nodes && nodes->size() == 1) {
    nodes->front().remove();
    return true;
  }
  failed(fmt::format("The manifest.xml file failed to locate node. xmlDoc={}, xpathStr={}",
                     document.serialize(XmlLayout::kCompact), xpath));
  return failed(
      fmt::format("Manifest update: matchingNodes count = {}.", nodes ? nodes->size() : 0));
}

bool HelperMethods::ManifestUpdateAddElementInternalPurposeOnly(
    XmlDocument& document, const std::string& writePath, const std::optional<std::string>& value,
    const std::string& name, const std::string& attribute) {
  auto parents = document.find(writePath);
  if (!parents || parents->size() != 1) return false;
  XmlElement element(name, value.value_or(""));
  element.attribute("CRKW", attribute);
  parents->front().append(element);
  return true;
}

}  // namespace tovrek
