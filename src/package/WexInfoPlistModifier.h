// Edits an app's Info.plist in memory and writes it back.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/PlistValue.h"
#include "log/WrapperLogger.h"
#include "package/AppBundle.h"

namespace tovrek {

// Reports to the logger that it was made with, which must outlive it. No edit reaches the disk
// before synchronize(), except by disableAppTransportSecurity().
class WexInfoPlistModifier {
 public:
  // Loads the bundle's Info.plist; none, logged, when there is no bundle, no such file, or the
  // file holds nothing.
  static std::optional<WexInfoPlistModifier> initWithAppBundle(
      const std::optional<AppBundle>& bundle, const WrapperLogger& logger);

  // Writes the dictionary as XML, atomically; the outcome is not reported.
  void synchronize() const;
  // Allows arbitrary loads and writes the whole dictionary at once, in binary form.
  bool disableAppTransportSecurity();

  // Always true: that a value is kept because it was there is no failure.
  bool addKey(std::string_view key, PlistValue value, bool overwrite);
  // Adds a URL type for the scheme; one with a group first removes every type that has a scheme
  // containing the group's text.
  bool addURLScheme(const std::string& scheme);
  bool addURLScheme(const std::string& scheme, const std::string& uniqueToUrlSchemeGroup);
  // Lets the app ask for the management companion apps, or for the given schemes.
  bool addWEXWhitelistURLSchemes();
  bool addWhitelistedUrlSchemes(const std::vector<std::string>& schemes);

  // Values of the dictionary "IntuneMAMSettings". The first answers none when absent; the second
  // answers false when `update` is false and the key has a value already.
  std::optional<PlistValue> intuneMAMSettingsObjectForKey(std::string_view key) const;
  bool intuneMAMSettingsAddKey(std::string_view key, PlistValue value, bool update);

  // The device families that the app does not run on: "ipad", "iphone", or empty for none.
  std::string getExcludedDevices() const;
  // The display name when there is one with letters, else the bundle's name; may be none.
  std::optional<std::string> friendlyIPAname() const;

  const std::string& plistPath() const { return plistPath_; }
  const PlistDictionary& plistDictionary() const { return plistDictionary_; }
  PlistDictionary& plistDictionary() { return plistDictionary_; }

 private:
  WexInfoPlistModifier(std::string path, PlistDictionary dictionary, const WrapperLogger& logger)
      : plistPath_(std::move(path)), plistDictionary_(std::move(dictionary)), logger_(&logger) {}

  std::string plistPath_;
  PlistDictionary plistDictionary_;
  const WrapperLogger* logger_;
};

}  // namespace tovrek
