// Items of keychains by name or digest.
#pragma once

#include <string>
#include <vector>

#include "keychain/Keychain.h"

namespace tovrek::security {

// An item and the keychain it lies in.
template <class T>
struct Located {
  T item;
  std::string keychain;
};

// Certificates whose name is `name` in any case, and whose SHA-1 or SHA-256 is `digest` in
// hexadecimal digits; what is not given is not asked for.
std::vector<Located<Certificate>> certificatesBy(const std::vector<keychain::Keychain>& keychains,
                                                 const std::optional<std::string>& name,
                                                 const std::optional<std::string>& digest);
// The same for certificates whose private key is there too.
std::vector<Located<keychain::Identity>> identitiesBy(
    const std::vector<keychain::Keychain>& keychains, const std::optional<std::string>& name,
    const std::optional<std::string>& digest);

std::string pemOf(const Certificate& certificate);

}  // namespace tovrek::security
