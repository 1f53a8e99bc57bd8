// The keychains that a command works on.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Streams.h"
#include "keychain/Keychain.h"

namespace tovrek::security {

// A line on standard error for each file that could not be read.
void tellUnreadable(const std::vector<keychain::Keychain>& keychains, const Streams& streams);

// The named keychains, or those of the search list when none is named. None, with the failure
// reported and `*status` set, when a named one cannot be opened.
std::optional<std::vector<keychain::Keychain>> chosenKeychains(
    const std::vector<std::string>& names, std::string_view call, int* status,
    const Streams& streams);

// The path of the named keychain, else of the default one. None, reported, when nothing is there.
std::optional<std::string> existingKeychain(const std::vector<std::string>& names,
                                            std::string_view call, int* status,
                                            const Streams& streams);

// The named keychain, else the default one, which comes into being with its first item. None, with
// the failure reported and `*status` set.
std::optional<keychain::Keychain> keychainToFill(const std::optional<std::string>& name,
                                                 std::string_view call, int* status,
                                                 const Streams& streams);

// Where a command's output goes: a file replaced as a whole, a device or pipe written to, standard
// output for none. Answers the exit status, a failure being reported.
// A file with secrets is for its owner alone, whatever stood there.
enum class Secrecy { kPublic, kSecret };
int writeResult(const std::optional<std::string>& path, std::string_view content,
                const Streams& streams, Secrecy secrecy = Secrecy::kPublic);

}  // namespace tovrek::security
