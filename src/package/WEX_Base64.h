// Base64 (RFC 4648, standard alphabet) in the variants that a package uses.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "formats/PlistValue.h"

namespace tovrek {

class WEX_Base64 {
 public:
  // Lines of 64 columns, CR LF between them and none at the end.
  static std::string encode(std::string_view text);
  static std::string encodeWithoutLinebreaks(std::string_view text);
  // Skips CR and LF and takes "-" for "+"; strict in everything else. The bytes must be UTF-8, or
  // ASCII when a "-" was among the digits. None when any of that fails.
  static std::optional<std::string> decode(std::string_view text);
  // A keyed archive of the value, encoded twice.
  static std::string encodeObject(const PlistValue& object);
  static std::optional<PlistValue> objectDecode(std::string_view text);
};

}  // namespace tovrek
