// Whether an app would be wrapped, without wrapping it.
#pragma once

#include <optional>
#include <string>

#include "inspect/inspect.h"
#include "inspect/model.h"

namespace tovrek::inspect {

// How the reason begins of what a device would refuse, and not the wrap itself.
inline constexpr const char* kOnceSigned = "once it is signed: ";

struct WrapWish {
  std::optional<std::string> certificate;  // a name as Wrap takes it, or a SHA-1
  std::optional<std::string> profile;      // a file, or a folder of them
  std::optional<std::string> keychain;     // none for the search list
  std::optional<std::string> bundleId;     // that the app is to get; none for its own
  bool isUpgrade = false;                  // -upgrade: any wildcard profile will do
  bool keepsExtensions = false;            // -noStripExtensions
};

// Runs the checks of Wrap and tells of all that fail, by the built-in rules and by the settings
// that a wrap would read. Checks that need the certificate or the profile are left out where that
// is not given.
WrapForecast forecastWrap(const WrapWish& wish, const Rules& rules, const OpenApp& open,
                          const Subject& subject);

}  // namespace tovrek::inspect
