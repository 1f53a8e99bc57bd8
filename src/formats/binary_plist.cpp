// The binary form: objects, then the offset of each, then a trailer of 32 bytes with the widths,
// the count, the top object and the table's place. Containers refer to objects by number, and
// several may refer to the same one.
#include <bit>
#include <cmath>
#include <cstdint>

#include "formats/PlistBudget.h"
#include "formats/plist_readers.h"
#include "host/utf8.h"

namespace tovrek {
namespace {

constexpr size_t kHeader = 8, kTrailer = 32;
// Dates count from 2001-01-01; values here from 1970-01-01.
constexpr double kEpochOfDates = 978307200;
// Further away (the years 0 and 9999) no date has a text form.
constexpr double kEarliest = -62135596800, kLatest = 253402300799;

class BinaryReader {
 public:
  BinaryReader(std::string_view bytes, const Limits& limits) : bytes_(bytes), budget_(limits) {}

  std::optional<PlistValue> read(std::string* reason) {
    std::optional<PlistValue> result = readTop();
    *reason = reason_;
    return result;
  }

 private:
  std::optional<PlistValue> readTop() {
    if (bytes_.size() < kHeader + kTrailer + 1) return failed("it ends too early");
    const size_t trailer = bytes_.size() - kTrailer;
    offsetWidth_ = byteAt(trailer + 6);
    referenceWidth_ = byteAt(trailer + 7);
    count_ = number(trailer + 8, 8);
    const uint64_t top = number(trailer + 16, 8);
    table_ = number(trailer + 24, 8);
    const auto isWidth = [](unsigned width) { return width >= 1 && width <= 8; };
    if (!isWidth(offsetWidth_) || !isWidth(referenceWidth_) || table_ < kHeader ||
        table_ > trailer || count_ > (trailer - table_) / offsetWidth_) {
      return failed("its trailer is damaged");
    }
    return object(top, 0);
  }

  std::nullopt_t failed(std::string reason) {
    if (reason_.empty()) reason_ = std::move(reason);
    return std::nullopt;
  }

  unsigned byteAt(uint64_t at) const { return static_cast<unsigned char>(bytes_[at]); }
  uint64_t number(uint64_t at, uint64_t width) const {
    uint64_t value = 0;
    for (uint64_t i = 0; i < width; ++i) value = value << 8 | byteAt(at + i);
    return value;
  }
  // Whether `count` items of `width` bytes stand at `at`, in front of the table.
  bool holds(uint64_t at, uint64_t count, uint64_t width) const {
    return at <= table_ && count <= (table_ - at) / width;
  }

  // `depth` is how many containers the object is in.
  std::optional<PlistValue> object(uint64_t index, size_t depth) {
    if (index >= count_) return failed("it refers to an object that it does not have");
    uint64_t at = number(table_ + index * offsetWidth_, offsetWidth_);
    if (at < kHeader || !holds(at, 1, 1)) return failed("an object lies outside of it");
    const unsigned marker = byteAt(at++);
    const unsigned kind = marker >> 4, low = marker & 0xF;
    switch (kind) {
      case 0x0:
        if (!afford(depth, 0)) return std::nullopt;
        if (low == 0x8 || low == 0x9) return PlistValue(low == 0x9);
        break;
      case 0x1:
        return afford(depth, 0) ? integer(at, low) : std::nullopt;
      case 0x2:
      case 0x3:
        return afford(depth, 0) ? real(at, low, kind == 0x3) : std::nullopt;
      case 0x8:
        if (!afford(depth, 0)) return std::nullopt;
        if (low > 7 || !holds(at, low + 1, 1)) return failed("a UID is damaged");
        return PlistValue(PlistValue::Uid{number(at, low + 1)});
      case 0x4:
      case 0x5:
      case 0x6:
      case 0xA:
      case 0xD:
        return sized(kind, low, at, depth);
      default:
        break;
    }
    return failed("it holds an object of an unknown kind");
  }

  bool afford(size_t depth, size_t bytes) {
    std::string excess = budget_.addValue(depth);
    if (excess.empty()) excess = budget_.addBytes(bytes);
    if (!excess.empty()) failed(excess);
    return excess.empty();
  }

  std::optional<PlistValue> integer(uint64_t at, unsigned power) {
    if (power > 4 || !holds(at, 1, uint64_t{1} << power)) return failed("a number is damaged");
    const uint64_t low = number(power == 4 ? at + 8 : at, power == 4 ? 8 : uint64_t{1} << power);
    const auto asSigned = static_cast<int64_t>(low);
    if (power < 4) return asSigned;  // eight bytes are signed, fewer are not
    const uint64_t high = number(at, 8);
    if (high == 0) return asSigned >= 0 ? PlistValue(asSigned) : PlistValue(low);
    if (high == ~uint64_t{0} && asSigned < 0) return asSigned;
    return failed("a number is too large");
  }

  std::optional<PlistValue> real(uint64_t at, unsigned power, bool isDate) {
    if ((power != 2 && power != 3) || (isDate && power != 3) ||
        !holds(at, 1, uint64_t{1} << power)) {
      return failed("a number is damaged");
    }
    const uint64_t bits = number(at, uint64_t{1} << power);
    const double value = power == 3 ? std::bit_cast<double>(bits)
                                    : std::bit_cast<float>(static_cast<uint32_t>(bits));
    if (!isDate) return value;
    const double since1970 = std::floor(value + kEpochOfDates);
    if (!(since1970 >= kEarliest && since1970 <= kLatest)) return failed("a date is out of range");
    return PlistValue(PlistValue::Date{since1970});
  }

  std::optional<PlistValue> sized(unsigned kind, unsigned low, uint64_t at, size_t depth) {
    uint64_t length = low;
    if (low == 0xF) {
      const unsigned width =
          holds(at, 1, 1) && (byteAt(at) & 0xFC) == 0x10 ? 1U << (byteAt(at) & 0x3) : 0;
      if (width == 0 || !holds(at + 1, 1, width)) return failed("a length is damaged");
      length = number(at + 1, width);
      at += 1 + width;
    }
    const uint64_t width = kind == 0x6   ? 2
                           : kind == 0xA ? referenceWidth_
                           : kind == 0xD ? 2 * referenceWidth_
                                         : 1;
    if (!holds(at, length, width)) return failed("an object is longer than the list");
    const bool isContainer = kind >= 0xA;
    if (!afford(isContainer ? depth + 1 : depth, isContainer ? 0 : length * width)) {
      return std::nullopt;
    }
    if (kind == 0x4) return PlistValue(PlistValue::Data{std::string(bytes_.substr(at, length))});
    if (kind == 0xA) return array(at, length, depth + 1);
    if (kind == 0xD) return dictionary(at, length, depth + 1);
    return kind == 0x5 ? narrowText(at, length) : wideText(at, length);
  }

  // ASCII, in which some writers put UTF-8.
  std::optional<PlistValue> narrowText(uint64_t at, uint64_t length) {
    std::string text(bytes_.substr(at, length));
    if (!isUtf8(text)) return failed("a text is not in its encoding");
    return finishedText(std::move(text));
  }

  std::optional<PlistValue> wideText(uint64_t at, uint64_t length) {
    std::string text;
    text.reserve(length);
    for (uint64_t i = 0; i < length; ++i) {
      uint32_t point = static_cast<uint32_t>(number(at + 2 * i, 2));
      if (point >= 0xD800 && point < 0xE000) {
        const auto next =
            i + 1 < length ? static_cast<uint32_t>(number(at + 2 * i + 2, 2)) : uint32_t{0};
        if (point >= 0xDC00 || next < 0xDC00 || next >= 0xE000) {
          return failed("a text is not in its encoding");
        }
        point = 0x10000 + ((point - 0xD800) << 10) + (next - 0xDC00);
        ++i;
      }
      appendUtf8(&text, point);
    }
    return finishedText(std::move(text));
  }

  // No XML can hold a zero character, and file names, arguments and the like neither.
  std::optional<PlistValue> finishedText(std::string text) {
    if (text.find('\0') != std::string::npos) return failed("a text holds a zero character");
    return PlistValue(std::move(text));
  }

  std::optional<PlistValue> array(uint64_t at, uint64_t length, size_t depth) {
    PlistValue::Array result;
    for (uint64_t i = 0; i < length; ++i) {
      auto item = object(number(at + i * referenceWidth_, referenceWidth_), depth);
      if (!item) return std::nullopt;
      result.push_back(std::move(*item));
    }
    return PlistValue(std::move(result));
  }

  std::optional<PlistValue> dictionary(uint64_t at, uint64_t length, size_t depth) {
    std::vector<PlistDictionary::Entry> entries;
    for (uint64_t i = 0; i < length; ++i) {
      const uint64_t keyAt = at + i * referenceWidth_;
      auto key = object(number(keyAt, referenceWidth_), depth);
      if (!key) return std::nullopt;
      if (key->string() == nullptr) return failed("a key is no text");
      auto value = object(number(keyAt + length * referenceWidth_, referenceWidth_), depth);
      if (!value) return std::nullopt;
      entries.emplace_back(std::move(*key->as<std::string>()), std::move(*value));
    }
    return PlistValue(dictionaryOf(std::move(entries)));
  }

  std::string_view bytes_;
  PlistBudget budget_;
  std::string reason_;
  unsigned offsetWidth_ = 0, referenceWidth_ = 0;
  uint64_t count_ = 0, table_ = 0;
};

}  // namespace

std::optional<PlistValue> readBinaryPlist(std::string_view bytes, const Limits& limits,
                                          std::string* reason) {
  return BinaryReader(bytes, limits).read(reason);
}

}  // namespace tovrek
