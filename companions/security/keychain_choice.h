// The keychains that a command works on.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "companions/keychain/Keychain.h"

namespace tovrek::security {

// The named keychains, or those of the search list when none is named. None, with the failure
// reported and `*status` set, when a named one cannot be opened.
std::optional<std::vector<keychain::Keychain>> chosenKeychains(
    const std::vector<std::string>& names, std::string_view call, int* status);

// The path of the named keychain, else of the default one. None, reported, when nothing is there.
std::optional<std::string> existingKeychain(const std::vector<std::string>& names,
                                            std::string_view call, int* status);

}  // namespace tovrek::security
