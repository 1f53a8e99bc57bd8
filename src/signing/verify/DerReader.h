// Reading DER (X.690) element by element, for the verifier alone.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "host/bytes.h"

namespace tovrek::signing {

// One DER element after the other.
class DerReader {
 public:
  enum Tag : uint8_t {
    kBoolean = 0x01,
    kInteger = 0x02,
    kUtf8String = 0x0c,
    kSequence = 0x30,
    kSet = 0x31,
    kApplication16 = 0x70,
    kContext16 = 0xb0,
  };
  explicit DerReader(std::string_view bytes) : rest_(bytes) {}

  struct Element {
    uint8_t tag = 0;
    std::string_view contents;
  };
  // None at the end, and for what does not lie inside.
  std::optional<Element> next() {
    if (rest_.size() < 2) return std::nullopt;
    const auto tag = static_cast<uint8_t>(rest_[0]);
    size_t length = static_cast<uint8_t>(rest_[1]);
    size_t header = 2;
    if (length >= 0x80) {
      const size_t digits = length & 0x7f;
      if (digits > 4 || rest_.size() < 2 + digits) return std::nullopt;
      length = 0;
      for (size_t i = 0; i < digits; ++i) length = length << 8 | static_cast<uint8_t>(rest_[2 + i]);
      header += digits;
    }
    if (!holds(rest_, header, length)) return std::nullopt;
    const Element element{tag, rest_.substr(header, length)};
    rest_.remove_prefix(header + length);
    return element;
  }

  bool atEnd() const { return rest_.empty(); }

 private:
  std::string_view rest_;
};

}  // namespace tovrek::signing
