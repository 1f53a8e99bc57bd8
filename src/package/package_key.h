// The values that tell one package from all others.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek {

std::string GenerateUUID();
// A new package key, 64 hexadecimal digits that differ on every run; none, logged, without a MAC
// address.
std::optional<std::string> GeneratePrivateKey(const std::string& bundlePath,
                                              const WrapperLogger& logger);
// "00:11:22:33:44:55" of "en0", logged; or the failure, logged and in the slot.
std::optional<std::string> getMacAddress(ErrorText* error, const WrapperLogger& logger);

}  // namespace tovrek
