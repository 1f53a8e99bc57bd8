// A keychain item's attributes as text.
#pragma once

#include <string>

#include "formats/Certificate.h"

namespace tovrek::security {

// Lines "keychain:", "version:", "class:", "attributes:" and one indented line for each attribute,
// such as `    "labl"<blob>="NAME"`.
std::string attributeDump(const Certificate& certificate, const std::string& keychainPath);

// The same for a private key, known by publicKeyId() and the name it is shown under.
std::string privateKeyDump(const std::string& id, const std::string& name,
                           const std::string& keychainPath);

// Bytes in quotes when all are printable; else "0xHEX" and the quoted bytes with octal escapes;
// "<NULL>" for none.
std::string blobText(std::string_view bytes);

}  // namespace tovrek::security
