#include "signing/verify/entitlement_check.h"

#include <algorithm>

#include "formats/PlistValue.h"
#include "signing/verify/DerReader.h"

namespace tovrek::signing {
namespace {

constexpr int kDeepestEntitlement = 100;

// Two's complement, most significant byte first.
std::optional<PlistValue> integerFrom(std::string_view bytes) {
  if (bytes.empty() || bytes.size() > 9 || (bytes.size() == 9 && bytes[0] != 0)) {
    return std::nullopt;
  }
  const bool negative = (static_cast<uint8_t>(bytes[0]) & 0x80) != 0;
  uint64_t value = negative ? UINT64_MAX : 0;
  for (const char c : bytes) value = value << 8 | static_cast<uint8_t>(c);
  if (negative) return PlistValue(static_cast<int64_t>(value));
  return PlistValue(value);
}

// In the form that signers write now, or in that of before 2021: dictionaries are sets there, and
// any byte but zero is true.
class Decoder {
 public:
  explicit Decoder(bool old) : old_(old) {}
  std::optional<PlistValue> value(const DerReader::Element& element, int depth) const;

 private:
  std::optional<PlistValue> array(std::string_view contents, int depth) const;
  std::optional<PlistValue> dictionary(std::string_view contents, int depth) const;

  bool old_;
};

std::optional<PlistValue> Decoder::array(std::string_view contents, int depth) const {
  PlistValue::Array items;
  for (DerReader reader(contents); !reader.atEnd();) {
    const auto element = reader.next();
    auto item = element ? value(*element, depth + 1) : std::nullopt;
    if (!item) return std::nullopt;
    items.push_back(std::move(*item));
  }
  return PlistValue(std::move(items));
}

// Pairs, in ascending order of their keys' bytes; older ones in that of their encoding.
std::optional<PlistValue> Decoder::dictionary(std::string_view contents, int depth) const {
  PlistDictionary entries;
  std::string previous;
  for (DerReader reader(contents); !reader.atEnd();) {
    const auto pair = reader.next();
    if (!pair || pair->tag != DerReader::kSequence) return std::nullopt;
    DerReader parts(pair->contents);
    const auto key = parts.next();
    const auto element = parts.next();
    if (!key || !element || key->tag != DerReader::kUtf8String || !parts.atEnd())
      return std::nullopt;
    if (!old_ && !entries.empty() && key->contents <= previous) return std::nullopt;
    previous = key->contents;
    auto decoded = value(*element, depth + 1);
    if (!decoded) return std::nullopt;
    entries.append(previous, std::move(*decoded));
  }
  return PlistValue(std::move(entries));
}

std::optional<PlistValue> Decoder::value(const DerReader::Element& element, int depth) const {
  if (depth > kDeepestEntitlement) return std::nullopt;
  const std::string_view bytes = element.contents;
  switch (element.tag) {
    case DerReader::kBoolean:
      if (bytes.size() != 1 || (!old_ && bytes[0] != '\0' && bytes[0] != '\xff')) {
        return std::nullopt;
      }
      return PlistValue(bytes[0] != '\0');
    case DerReader::kInteger:
      return integerFrom(bytes);
    case DerReader::kUtf8String:
      return PlistValue(bytes);
    case DerReader::kSequence:
      return array(bytes, depth);
    case DerReader::kContext16:
    case DerReader::kSet:
      if ((element.tag == DerReader::kSet) != old_) return std::nullopt;
      return dictionary(bytes, depth);
    default:
      return std::nullopt;
  }
}

// Version 1 and a dictionary, or the bare dictionary of the older form.
std::optional<PlistValue> entitlementsFrom(std::string_view der) {
  DerReader outer(der);
  auto element = outer.next();
  if (!element || !outer.atEnd()) return std::nullopt;
  const bool old = element->tag == DerReader::kSet;
  if (!old) {
    DerReader inner(element->contents);
    const auto version = inner.next();
    if (element->tag != DerReader::kApplication16 || !version ||
        version->tag != DerReader::kInteger || version->contents != "\1") {
      return std::nullopt;
    }
    element = inner.next();
    if (!element || !inner.atEnd() || element->tag != DerReader::kContext16) return std::nullopt;
  }
  return Decoder(old).value(*element, 0);
}

// A whole number, whichever kind the parser chose: negative or not, and its 64 bits.
std::optional<std::pair<bool, uint64_t>> integerOf(const PlistValue& value) {
  if (const auto* number = value.as<int64_t>()) {
    return std::pair(*number < 0, static_cast<uint64_t>(*number));
  }
  if (const auto* number = value.as<uint64_t>()) return std::pair(false, *number);
  return std::nullopt;
}

bool isSame(const PlistValue& a, const PlistValue& b) {
  if (a.array() != nullptr && b.array() != nullptr) {
    const auto &x = *a.array(), &y = *b.array();
    return std::equal(x.begin(), x.end(), y.begin(), y.end(), isSame);
  }
  if (a.dictionary() != nullptr && b.dictionary() != nullptr) {
    const PlistDictionary &x = *a.dictionary(), &y = *b.dictionary();
    return x.size() == y.size() && std::all_of(x.begin(), x.end(), [&](const auto& entry) {
             const PlistValue* other = y.find(entry.first);
             return other != nullptr && isSame(entry.second, *other);
           });
  }
  if (integerOf(a)) return integerOf(a) == integerOf(b);
  return a == b;
}

}  // namespace

bool areEntitlementsConsistent(const CodeSignature& signature) {
  const auto der = signature.component(kDerEntitlementsSlot);
  if (!der) return true;
  const auto text = signature.entitlementsText();
  const auto plist = text ? parsePlist(*text) : std::nullopt;
  const auto decoded =
      magicOf(*der) == kDerEntitlementsMagic ? entitlementsFrom(payloadOf(*der)) : std::nullopt;
  return plist && decoded && isSame(*plist, *decoded);
}

}  // namespace tovrek::signing
