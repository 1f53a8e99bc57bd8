// Private keys that stay on a token: a smart card, an HSM or a file that plays one.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "keychain/Keychain.h"

namespace tovrek::keychain {

// The "pkcs11:" URI (RFC 7512) that a key file holds in place of a key: its first line. None when
// the file holds something else.
std::optional<std::string> tokenUriIn(std::string_view fileContents);

// The key that the URI names. Signing with it happens on the token.
//
// The module is that of the URI's "module-path", else of $TOVREK_PKCS11_MODULE, else the one that
// joins all modules of this host (p11-kit). A module is a program that runs: only the user may name
// one, so "module-path" in a file is refused. The PIN is the URI's "pin-value", else the first line
// of the file named by "pin-source" (a regular file of this user), else $TOVREK_PKCS11_PIN; nobody
// is asked for it. Null, with the reason, when engine, module, token, key or PIN is missing or
// wrong.
//
// OpenSSL's engine for PKCS#11 is loaded with the first such key and not before. One process works
// with one module.
enum class UriSource { kCommandLine, kFile };
PrivateKey loadTokenKey(const std::string& uri, UriSource source, ErrorText* error);

// The URI as it may be kept in a file.
std::string withoutModule(const std::string& uri);

// Whether the key came from loadTokenKey(). What OpenSSL has of such a key looks like a whole one
// to its encoders, but is not.
bool isOnToken(const PrivateKey& key);

}  // namespace tovrek::keychain
