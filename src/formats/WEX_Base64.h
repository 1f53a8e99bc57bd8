// The forms of Base64 that packages use, over the one of base64.h.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace tovrek {

class WEX_Base64 {
 public:
  // Lines of 64 columns, CR LF between them and none at the end.
  static std::string encode(std::string_view bytes);
  static std::string encodeWithoutLinebreaks(std::string_view bytes);
  // Skips CR and LF and takes "-" for "+"; strict in everything else. The bytes must be UTF-8, or
  // ASCII when a "-" was among the digits. None when any of that fails.
  static std::optional<std::string> decode(std::string_view text);
  // Groups of four digits, the last one padded with "=" to that length; none for anything else.
  static std::optional<std::string> decodeBytes(std::string_view digits);
};

}  // namespace tovrek
