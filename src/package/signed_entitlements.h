// What the signature of an app or a binary entitles it to.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"
#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// All signed entitlements; none when the code is not signed or they cannot be read. Nothing is
// logged or printed: to have none is usual for nested code. The slot is filled when codesign could
// not be asked.
std::optional<PlistDictionary> signedEntitlements(const std::string& path,
                                                  ErrorText* error = nullptr);
// The value of `key` in them, on the same terms but logged, with codesign's own complaints on
// standard error; none also when the key is missing.
std::optional<PlistValue> ReadEmbeddedEntitlements(const std::string& path, std::string_view key,
                                                   const WrapperLogger& logger);

}  // namespace tovrek
