// Private keys as files of a keychain's folder: "ID.key", where ID is the digest of the public key.
#pragma once

#include <string>
#include <string_view>

#include "keychain/Keychain.h"

namespace tovrek::keychain {

// Readable by the owner alone from its first byte on; appears whole or not at all.
bool writeSecret(const std::string& path, std::string_view contents, ErrorText* error);

// PKCS#8 in PEM. With a password it is encrypted (RFC 8018: PBES2, AES-256 in CBC mode, PBKDF2
// with SHA-256). Empty when the key cannot be written, as one on a token.
std::string keyToPem(const PrivateKey& key, const std::optional<std::string>& password);

// Stores a key under its digest, encrypted where the keychain's settings say so. Fails for a
// locked keychain.
bool writeKeyFile(const std::string& keychain, const PrivateKey& key, ErrorText* error);

// Whether the file of a keychain can wait until its key is used: it is named by a digest and holds
// an encrypted key or a token's URI.
bool canWait(const std::string& fileName, std::string_view contents);

// Encrypts all keys that are stored under `before` anew under `after`. Nothing is changed when one
// of them fits neither password.
bool reencryptKeys(const std::string& keychain, const std::string& before, const std::string& after,
                   ErrorText* error);

}  // namespace tovrek::keychain
