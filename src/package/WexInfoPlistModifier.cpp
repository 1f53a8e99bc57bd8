#include "package/WexInfoPlistModifier.h"

#include <fmt/format.h>

#include "host/files.h"
#include "package/device_families.h"
#include "package/url_schemes.h"

namespace tovrek {
namespace {

constexpr char kIntuneSettings[] = "IntuneMAMSettings";

// The Intune settings when there are any.
const PlistDictionary* intuneSettings(const PlistDictionary& infoPlist) {
  const PlistDictionary* settings = dictionaryForKey(infoPlist, kIntuneSettings);
  return settings != nullptr && !settings->empty() ? settings : nullptr;
}

}  // namespace

std::optional<WexInfoPlistModifier> WexInfoPlistModifier::initWithAppBundle(
    const std::optional<AppBundle>& bundle, const WrapperLogger& logger) {
  if (!bundle) {
    logger.logError("No app bundle provided to find Info.plist");
    return std::nullopt;
  }
  const auto path = bundle->resourcePath("Info", "plist");
  if (!path) {
    logger.logError("Error:- The path for Info.plist dont exist");
    return std::nullopt;
  }
  auto dictionary = readPlistDictionary(*path);
  if (!dictionary || dictionary->empty()) {
    logger.logError(fmt::format("The plist file {} does not exist", *path));
    return std::nullopt;
  }
  return WexInfoPlistModifier(*path, std::move(*dictionary), logger);
}

void WexInfoPlistModifier::synchronize() const {
  ErrorText reason;
  if (writePlist(plistPath_, plistDictionary_, PlistFormat::kXml, &reason)) return;
  logger_->logWarning(fmt::format("The URL schemes and settings were not added to {}: {}",
                                  plistPath_, reason.text()));
}

bool WexInfoPlistModifier::disableAppTransportSecurity() {
  constexpr char kSecurity[] = "NSAppTransportSecurity";
  const PlistDictionary* present = dictionaryForKey(plistDictionary_, kSecurity);
  PlistDictionary settings = present != nullptr ? *present : PlistDictionary();
  settings.set("NSAllowsArbitraryLoads", true);
  plistDictionary_.set(kSecurity, std::move(settings));
  const std::string bytes = serializePlist(plistDictionary_, PlistFormat::kBinary);
  if (bytes.empty()) {
    logger_->logError(
        "NSPropertyListSerialization operation to info.plist failed while disabling app "
        "transport security.");
    return false;
  }
  return writeFileAtomically(plistPath_, bytes);
}

bool WexInfoPlistModifier::addKey(std::string_view key, PlistValue value, bool overwrite) {
  if (overwrite || !plistDictionary_.contains(key)) plistDictionary_.set(key, std::move(value));
  return true;
}

bool WexInfoPlistModifier::addURLScheme(const std::string& scheme) {
  return addURLScheme(scheme, "");
}

bool WexInfoPlistModifier::addURLScheme(const std::string& scheme,
                                        const std::string& uniqueToUrlSchemeGroup) {
  return AddURLScheme(scheme, uniqueToUrlSchemeGroup, plistDictionary_);
}

bool WexInfoPlistModifier::addWEXWhitelistURLSchemes() {
  return addWhitelistedUrlSchemes(defaultURLSchemesToWhitelist());
}

bool WexInfoPlistModifier::addWhitelistedUrlSchemes(const std::vector<std::string>& schemes) {
  return addURLSchemes(schemes, plistDictionary_, *logger_);
}

std::optional<PlistValue> WexInfoPlistModifier::intuneMAMSettingsObjectForKey(
    std::string_view key) const {
  const PlistDictionary* settings = intuneSettings(plistDictionary_);
  if (settings == nullptr) {
    logger_->logWarning("IntuneMAMSettings not found.");
    return std::nullopt;
  }
  const PlistValue* value = settings->find(key);
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

bool WexInfoPlistModifier::intuneMAMSettingsAddKey(std::string_view key, PlistValue value,
                                                   bool update) {
  const PlistDictionary* present = intuneSettings(plistDictionary_);
  if (present == nullptr) {
    logger_->logWarning("IntuneMAMSettings not found. Might have to add it now.");
  } else if (!update && present->contains(key)) {
    logger_->logWarning(
        fmt::format("IntuneMAMSettings: Already has {} key, so not updating.", key));
    return false;
  }
  PlistDictionary settings = present != nullptr ? *present : PlistDictionary();
  logger_->logBasic(fmt::format("IntuneMAMSettings: Setting {} key", key));
  settings.set(key, std::move(value));
  plistDictionary_.set(kIntuneSettings, std::move(settings));
  return true;
}

std::string WexInfoPlistModifier::getExcludedDevices() const {
  return getExcludedDevicesStringFromDevicesArray(plistDictionary_.find("UIDeviceFamily"),
                                                  *logger_);
}

std::optional<std::string> WexInfoPlistModifier::friendlyIPAname() const {
  const std::string* displayName = stringForKey(plistDictionary_, "CFBundleDisplayName");
  if (displayName != nullptr && !displayName->empty()) return *displayName;
  const std::string* name = stringForKey(plistDictionary_, "CFBundleName");
  return name != nullptr ? std::optional(*name) : std::nullopt;
}

}  // namespace tovrek
