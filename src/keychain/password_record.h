// The password that a keychain was created with, kept so that unlocking can tell a wrong one.
#pragma once

#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek::keychain {

// The file in a keychain's folder: one line "pbkdf2-sha256 ROUNDS SALT DIGEST" (RFC 8018), the
// last two in hex.
inline constexpr std::string_view kPasswordRecordName = ".password";

bool writePasswordRecord(const std::string& folder, std::string_view password, ErrorText* error);
// True also for a folder without a record, and false for one that cannot be read.
bool fitsPasswordRecord(const std::string& folder, std::string_view password);

}  // namespace tovrek::keychain
