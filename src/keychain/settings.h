// What a keychain's folder remembers about itself.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"

namespace tovrek::keychain {

// The file in the folder, one setting in a line; a missing one means the defaults.
inline constexpr std::string_view kSettingsName = ".settings";

struct Settings {
  bool encrypted = false;      // keys are stored under the keychain's password
  bool lockOnSleep = false;    // remembered, as build servers do not sleep
  std::optional<int> timeout;  // seconds without use until it locks; none: never

  bool operator==(const Settings&) const = default;
};

Settings readSettings(const std::string& folder);
bool writeSettings(const std::string& folder, const Settings& settings, ErrorText* error);

}  // namespace tovrek::keychain
