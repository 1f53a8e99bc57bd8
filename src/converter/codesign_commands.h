// The command lines of codesign, all of them.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "context/PellRequest.h"

namespace tovrek::converter {

using CommandLine = std::vector<std::string>;

// Who signs.
struct Signer {
  std::string certificate;  // its name or digest
  PellRequest keychain;     // to take it from
};

// Whether the requirements of the old signature go into the new one, or are made for the new
// certificate.
enum class Requirements { kKept, kNew };

// Of a single library.
CommandLine signLibraryCommand(const Signer& signer, const std::string& path);
// Of nested code; the keychain comes last.
CommandLine signNestedCodeCommand(const Signer& signer, const std::string& path);
// Of a bundle; without an entitlements file those of the old signature are kept.
CommandLine signBundleCommand(const Signer& signer, const std::string& path,
                              const std::optional<std::string>& entitlementPath,
                              Requirements requirements);

// Writes the entitlements of the signature to a file.
CommandLine saveEntitlementsCommand(const std::string& path, const std::string& target);
// What the signature says, on standard error: with the team, with the authorities.
CommandLine displayTeamCommand(const std::string& path);
CommandLine displayAuthoritiesCommand(const std::string& path);

}  // namespace tovrek::converter
