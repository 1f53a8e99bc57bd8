#include "inspect/text.h"

#include <fmt/format.h>

#include <cmath>
#include <optional>

#include "formats/hex.h"
#include "host/clock.h"
#include "host/utf8.h"

namespace tovrek::inspect {
namespace {

// The bytes of the character at the start; 0 when there is no sound one.
size_t characterLength(std::string_view text) {
  for (size_t length = 1; length <= 4 && length <= text.size(); ++length) {
    if (isUtf8(text.substr(0, length))) return length;
  }
  return 0;
}

uint32_t codePoint(std::string_view character) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(character[i]); };
  if (character.size() == 1) return byte(0);
  uint32_t value = byte(0) & (0x7fU >> character.size());
  for (size_t i = 1; i < character.size(); ++i) value = value << 6 | (byte(i) & 0x3fU);
  return value;
}

// Characters that have no look of their own and change that of others, or end a line.
bool isInvisible(uint32_t c) {
  return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0xad || c == 0x61c || c == 0xfeff ||
         (c >= 0x200b && c <= 0x200f) || (c >= 0x2028 && c <= 0x202e) ||
         (c >= 0x2060 && c <= 0x206f) || (c >= 0xfff9 && c <= 0xfffb) ||
         (c >= 0xe0000 && c <= 0xe0fff);
}

// Calls take(character, codePoint) for each character, none for a byte that belongs to no one.
template <class Take>
void forEachCharacter(std::string_view text, const Take& take) {
  while (!text.empty()) {
    const size_t length = characterLength(text);
    const std::string_view character = text.substr(0, std::max<size_t>(length, 1));
    take(character, length == 0 ? std::nullopt : std::optional(codePoint(character)));
    text.remove_prefix(character.size());
  }
}

std::string shownInstead(std::string_view character, std::optional<uint32_t> point) {
  if (!point || *point < 0x80) {
    return fmt::format("\\x{:02x}", static_cast<unsigned char>(character.front()));
  }
  return fmt::format("\\u{{{:x}}}", *point);
}

// Text of a value, cut where nobody would read on.
class ValueWriter {
 public:
  std::string text;

  void write(const PlistValue& value, int depth) {
    if (text.size() > kLongest) return;
    if (depth > kDeepest) {
      text += "...";
      return;
    }
    value.visit([&](const auto& inner) { put(inner, depth); });
  }

  std::string take() {
    if (text.size() > kLongest) {
      text.resize(kLongest);
      text += "...";
    }
    return std::move(text);
  }

 private:
  static constexpr size_t kLongest = 2000;
  static constexpr int kDeepest = 8;

  void put(const std::string& value, int) {
    if (value.size() <= kLongest) {
      text += value;
    } else {
      text.append(value, 0, kLongest + 1);
    }
  }
  void put(bool value, int) { text += value ? "yes" : "no"; }
  void put(int64_t value, int) { text += std::to_string(value); }
  void put(uint64_t value, int) { text += std::to_string(value); }
  void put(double value, int) { text += fmt::format("{}", value); }
  void put(const PlistValue::Date& value, int) { text += dateText(value.secondsSince1970); }
  void put(const PlistValue::Data& value, int) {
    text += fmt::format("<{} bytes>", value.bytes.size());
  }
  void put(const PlistValue::Uid& value, int) { text += std::to_string(value.value); }
  void put(const PlistValue::Array& value, int depth) {
    text += '[';
    for (size_t i = 0; i < value.size() && text.size() <= kLongest; ++i) {
      if (i != 0) text += ", ";
      write(value[i], depth + 1);
    }
    text += ']';
  }
  void put(const PlistDictionary& value, int depth) {
    text += '{';
    bool first = true;
    for (const auto& [key, inner] : value) {
      if (text.size() > kLongest) break;
      if (!first) text += ", ";
      first = false;
      text += key + ": ";
      write(inner, depth + 1);
    }
    text += '}';
  }
};

}  // namespace

std::string forTerminal(std::string_view text) {
  std::string shown;
  forEachCharacter(text, [&](std::string_view character, std::optional<uint32_t> point) {
    if (!point || isInvisible(*point)) {
      shown += shownInstead(character, point);
    } else {
      shown += character;
    }
  });
  return shown;
}

std::string forHtml(std::string_view text) {
  std::string shown;
  for (const char c : forTerminal(text)) {
    switch (c) {
      case '&':
        shown += "&amp;";
        break;
      case '<':
        shown += "&lt;";
        break;
      case '>':
        shown += "&gt;";
        break;
      case '"':
        shown += "&quot;";
        break;
      case '\'':
        shown += "&#39;";
        break;
      default:
        shown += c;
    }
  }
  return shown;
}

std::string forJson(std::string_view text) {
  std::string shown;
  forEachCharacter(text, [&](std::string_view character, std::optional<uint32_t> point) {
    if (!point) {
      shown += "\\ufffd";
    } else if (*point == '"' || *point == '\\') {
      shown += '\\';
      shown += character;
    } else if (isInvisible(*point) && *point < 0x10000) {
      shown += fmt::format("\\u{:04x}", *point);
    } else {
      shown += character;
    }
  });
  return shown;
}

std::string sizeText(uint64_t bytes) {
  constexpr const char* kUnits[] = {"kB", "MB", "GB", "TB", "PB", "EB"};
  if (bytes < 1000) return fmt::format("{} bytes", bytes);
  double value = static_cast<double>(bytes);
  size_t unit = 0;
  for (value /= 1000; value >= 999.95 && unit + 1 < std::size(kUnits); ++unit) value /= 1000;
  return fmt::format("{:.1f} {}", value, kUnits[unit]);
}

std::string dateText(double secondsSince1970) {
  constexpr double kEndOfYear9999 = 253402300800;
  constexpr double kYear0 = -62135596800;
  if (!std::isfinite(secondsSince1970) || secondsSince1970 == 0) return "";
  if (secondsSince1970 >= kEndOfYear9999) return "after 9999";
  if (secondsSince1970 < kYear0) return "before year 1";
  return dateDescription(secondsSince1970).substr(0, 10);
}

std::string valueText(const PlistValue& value) {
  ValueWriter writer;
  writer.write(value, 0);
  return writer.take();
}

}  // namespace tovrek::inspect
