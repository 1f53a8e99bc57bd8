#include "formats/BinaryPlistWriter.h"

#include <algorithm>
#include <bit>

#include "formats/xml_text.h"
#include "host/bytes.h"
#include "host/utf8.h"

namespace tovrek {
namespace {

// Dates count from the first second of 2001.
constexpr double kEpochOfBinaryDates = 978307200;
// Kinds of objects, the upper half of a marker.
constexpr unsigned kInteger = 0x1, kReal = 0x2, kDate = 0x3, kDataKind = 0x4, kNarrowText = 0x5,
                   kWideText = 0x6, kUid = 0x8, kArrayKind = 0xA, kDictionaryKind = 0xD;

std::string marker(unsigned kind, unsigned low) {
  return std::string(1, static_cast<char>(kind << 4 | low));
}

void appendNumber(std::string* bytes, uint64_t number, unsigned width) {
  for (unsigned shift = 8 * width; shift != 0; shift -= 8) {
    *bytes += static_cast<char>(number >> (shift - 8));
  }
}

// Bytes that the number takes, as powers of two go.
unsigned widthOf(uint64_t number) {
  return number < 0x100 ? 1 : number < 0x10000 ? 2 : number < 0x100000000 ? 4 : 8;
}

// Up to eight bytes; only those of eight bytes are signed.
std::string integer(uint64_t number) {
  const unsigned width = widthOf(number);
  std::string bytes = marker(kInteger, static_cast<unsigned>(std::countr_zero(width)));
  appendNumber(&bytes, number, width);
  return bytes;
}

std::string sized(unsigned kind, uint64_t length) {
  constexpr unsigned kFollows = 0xF;
  if (length < kFollows) return marker(kind, static_cast<unsigned>(length));
  return marker(kind, kFollows) + integer(length);
}

std::string real(unsigned kind, double number) {
  std::string bytes = marker(kind, 3);
  appendBig64(&bytes, std::bit_cast<uint64_t>(number));
  return bytes;
}

// Of text in UTF-8, in big-endian units.
std::string inUtf16(std::string_view text) {
  std::string units;
  while (!text.empty()) {
    auto [point, length] = firstCodePoint(text);
    text.remove_prefix(length);
    if (point >= 0x10000) {
      appendNumber(&units, 0xD800 + ((point - 0x10000) >> 10), 2);
      point = 0xDC00 + ((point - 0x10000) & 0x3FF);
    }
    appendNumber(&units, point, 2);
  }
  return units;
}

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

}  // namespace

struct BinaryPlistWriter::Visitor {
  BinaryPlistWriter& writer;

  uint64_t operator()(const std::string& text) const { return writer.addText(text); }
  uint64_t operator()(bool flag) const { return writer.addSimple(marker(0, flag ? 9 : 8)); }
  uint64_t operator()(int64_t number) const {
    return writer.addSimple(integer(static_cast<uint64_t>(number)));
  }
  uint64_t operator()(uint64_t number) const {
    if (number >> 63 == 0) return writer.addSimple(integer(number));
    std::string bytes = marker(kInteger, 4);  // sixteen bytes: in eight it would be negative
    appendBig64(&bytes, 0);
    appendBig64(&bytes, number);
    return writer.addSimple(bytes);
  }
  uint64_t operator()(double number) const { return writer.addSimple(real(kReal, number)); }
  uint64_t operator()(const PlistValue::Date& date) const {
    return writer.addSimple(real(kDate, date.secondsSince1970 - kEpochOfBinaryDates));
  }
  uint64_t operator()(const PlistValue::Data& data) const {
    return writer.addSimple(sized(kDataKind, data.bytes.size()) + data.bytes);
  }
  uint64_t operator()(const PlistValue::Uid& uid) const {
    const unsigned width = widthOf(uid.value);
    std::string bytes = marker(kUid, width - 1);
    appendNumber(&bytes, uid.value, width);
    return writer.addSimple(bytes);
  }
  uint64_t operator()(const PlistValue::Array& array) const {
    const uint64_t number = writer.objects_.size();
    writer.objects_.push_back({sized(kArrayKind, array.size()), {}});
    std::vector<uint64_t> references;
    for (const PlistValue& item : array) references.push_back(writer.add(item));
    writer.objects_[number].references = std::move(references);
    return number;
  }
  uint64_t operator()(const PlistDictionary& dictionary) const {
    const uint64_t number = writer.objects_.size();
    writer.objects_.push_back({sized(kDictionaryKind, dictionary.size()), {}});
    std::vector<uint64_t> keys, values;
    for (const auto& [key, value] : dictionary) {
      keys.push_back(writer.addText(key));
      values.push_back(writer.add(value));
    }
    keys.insert(keys.end(), values.begin(), values.end());
    writer.objects_[number].references = std::move(keys);
    return number;
  }
};

uint64_t BinaryPlistWriter::add(const PlistValue& value) {
  return value.visit(Visitor{*this});
}

uint64_t BinaryPlistWriter::addSimple(std::string bytes) {
  const auto [known, isNew] = known_.try_emplace(bytes, objects_.size());
  if (isNew) objects_.push_back({std::move(bytes), {}});
  return known->second;
}

uint64_t BinaryPlistWriter::addText(std::string_view text) {
  if (isAscii(text)) return addSimple(sized(kNarrowText, text.size()) + std::string(text));
  // What is no UTF-8 would not be read again.
  const std::string units = inUtf16(isUtf8(text) ? std::string(text) : xmlText(text));
  return addSimple(sized(kWideText, units.size() / 2) + units);
}

std::string BinaryPlistWriter::finish() const {
  std::string file = "bplist00";
  const unsigned referenceWidth = widthOf(objects_.size());
  std::vector<uint64_t> offsets;
  offsets.reserve(objects_.size());
  for (const Object& object : objects_) {
    offsets.push_back(file.size());
    file += object.bytes;
    for (const uint64_t number : object.references) appendNumber(&file, number, referenceWidth);
  }
  const uint64_t table = file.size();
  const unsigned offsetWidth = widthOf(table);
  for (const uint64_t offset : offsets) appendNumber(&file, offset, offsetWidth);
  file.append(6, '\0');
  file += {static_cast<char>(offsetWidth), static_cast<char>(referenceWidth)};
  for (const uint64_t number : {uint64_t{objects_.size()}, uint64_t{0}, table}) {
    appendBig64(&file, number);
  }
  return file;
}

std::string BinaryPlistWriter::write(const PlistValue& value) {
  objects_.clear();
  known_.clear();
  add(value);
  return finish();
}

}  // namespace tovrek
