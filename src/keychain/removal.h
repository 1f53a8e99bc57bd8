// Taking single items out of a keychain.
#pragma once

#include <string>

#include "keychain/Keychain.h"

namespace tovrek::keychain {

// Deletes the files that hold the certificate, and those of its private key where `withKey` is
// set. A key on a token stays there; its URI goes. False, with the reason and nothing deleted, when
// the keychain is a single file, or when one of the files holds other items too.
bool removeFromKeychain(const std::string& keychain, const Certificate& certificate, bool withKey,
                        ErrorText* error);

}  // namespace tovrek::keychain
