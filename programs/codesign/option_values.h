// The values that options of codesign -s take. Each function answers false, with the reason, for
// what is none.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "signing/Signer.h"

namespace tovrek::codesign {

// "identifier,flags": names of parts of a signature, which may be cut short.
bool parsePreserved(const std::string& list, signing::PreservedMetadata* preserve,
                    ErrorText* error);
// "runtime,kill", or a number.
bool parseFlags(const std::string& text, std::optional<uint32_t>* flags, ErrorText* error);
// "sha1,sha256"; the option may be there several times.
bool parseDigests(const std::vector<std::string>& lists, std::vector<signing::HashKind>* digests,
                  ErrorText* error);
bool parsePageSize(const std::string& text, uint8_t* log2, ErrorText* error);
// "10.15" or "10.15.4".
bool parseRuntime(const std::string& text, std::optional<uint32_t>* version, ErrorText* error);

}  // namespace tovrek::codesign
