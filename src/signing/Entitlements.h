// Entitlements in the forms that a signature holds.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"
#include "host/ErrorText.h"

namespace tovrek::signing {

struct Entitlements {
  std::string xmlBlob;        // the property list's text, unchanged
  std::string derBlob;        // the same as DER, for systems that read nothing else
  uint64_t execSegFlags = 0;  // what they grant, in the code directory's terms

  // From a property-list file's bytes, or from a blob that holds them. Binary lists and those with
  // comments, which devices do not read, are written anew as plain XML. None, with the reason, for
  // what is no dictionary or holds values that have no DER form (reals, dates, data).
  static std::optional<Entitlements> fromPlist(std::string_view bytes, ErrorText* error = nullptr);
};

// The DER form: [APPLICATION 16] { INTEGER 1, dictionary }, a dictionary being [CONTEXT 16] of
// SEQUENCE { UTF8String key, value } sorted by the keys' bytes.
std::optional<std::string> derEntitlements(const PlistDictionary& entitlements,
                                           ErrorText* error = nullptr);

}  // namespace tovrek::signing
