// The XML form, in any encoding that the C library knows. Read by events, so that nothing but the
// values themselves takes memory.
#include <algorithm>
#include <charconv>
#include <cstdio>
#include <ctime>

#include "formats/PlistBudget.h"
#include "formats/base64.h"
#include "formats/plist_readers.h"
#include "formats/xml_parsing.h"
#include "host/paths.h"

namespace tovrek {
namespace {

std::optional<PlistValue> integerFrom(std::string_view text) {
  if (text.empty()) return int64_t{0};
  const bool negative = text.front() == '-';
  if (negative || text.front() == '+') text.remove_prefix(1);
  const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (hexadecimal) text.remove_prefix(2);
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, number, hexadecimal ? 16 : 10);
  if (fault != std::errc() || stop != end) return std::nullopt;
  constexpr uint64_t kLowest = uint64_t{1} << 63;
  if (negative) {
    if (number > kLowest) return std::nullopt;
    return PlistValue(static_cast<int64_t>(0 - number));
  }
  return number < kLowest ? PlistValue(static_cast<int64_t>(number)) : PlistValue(number);
}

std::optional<PlistValue> realFrom(std::string_view text) {
  if (text.starts_with('+')) text.remove_prefix(1);
  if (text.empty()) return 0.0;
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, fault] = std::from_chars(text.data(), end, number);
  if (fault != std::errc() || stop != end) return std::nullopt;
  return number;
}

// The C library counts in 64 bits, so that no year is out of reach.
std::optional<PlistValue> dateFrom(const std::string& text) {
  std::tm parts{};
  int year = 0, length = 0;
  if (std::sscanf(text.c_str(), "%d-%d-%dT%d:%d:%dZ%n", &year, &parts.tm_mon, &parts.tm_mday,
                  &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &length) != 6 ||
      static_cast<size_t>(length) != text.size() || year < 1 || year > 9999) {
    return std::nullopt;
  }
  parts.tm_year = year - 1900;
  parts.tm_mon -= 1;
  return PlistValue::Date{static_cast<double>(::timegm(&parts))};
}

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

std::optional<PlistValue> dataFrom(std::string* text) {
  std::erase_if(*text, isBlank);
  auto bytes = bytesFromBase64(*text);
  if (!bytes) return std::nullopt;
  return PlistValue(PlistValue::Data{std::move(*bytes)});
}

// XML has no element for UIDs; their form here is a dictionary of one number.
PlistValue withoutUidForm(PlistDictionary dictionary) {
  const PlistValue* value = dictionary.size() == 1 ? dictionary.find("CF$UID") : nullptr;
  const int64_t* number = value != nullptr ? value->as<int64_t>() : nullptr;
  if (number != nullptr && *number >= 0) return PlistValue::Uid{static_cast<uint64_t>(*number)};
  return dictionary;
}

enum class Element { kPlist, kDictionary, kArray, kKey, kLeaf, kUnknown };

Element elementOf(std::string_view name) {
  if (name == "plist") return Element::kPlist;
  if (name == "dict") return Element::kDictionary;
  if (name == "array") return Element::kArray;
  if (name == "key") return Element::kKey;
  for (const std::string_view leaf :
       {"string", "integer", "real", "true", "false", "date", "data"}) {
    if (name == leaf) return Element::kLeaf;
  }
  return Element::kUnknown;
}

class XmlPlistReader : public XmlReceiver {
 public:
  explicit XmlPlistReader(const Limits& limits) : budget_(limits) {}

  void startElement(std::string_view name, XmlAttributes /*attributes*/) override {
    const Element element = elementOf(name);
    if (inText_) return fail("<" + std::string(name) + "> inside of a text");
    if (element == Element::kUnknown) return fail("unknown element <" + std::string(name) + ">");
    if (element == Element::kPlist) {
      if (sawElement_) return fail("<plist> inside of the list");
      sawElement_ = true;
      return;
    }
    sawElement_ = true;
    const bool inDictionary = !open_.empty() && open_.back().isDictionary;
    if (element == Element::kKey ? !inDictionary || open_.back().key
                                 : inDictionary && !open_.back().key) {
      return fail("keys and values do not take turns");
    }
    if (open_.empty() && result_) return fail("more than one value");
    if (element == Element::kDictionary || element == Element::kArray) {
      open_.emplace_back();
      open_.back().isDictionary = element == Element::kDictionary;
      return countValue();
    }
    inText_ = true;
    text_.clear();
    countValue();
  }

  void characters(std::string_view text) override {
    if (!inText_) {
      if (!std::ranges::all_of(text, isBlank)) fail("a text outside of an element");
      return;
    }
    text_ += text;
    failIfAny(budget_.addBytes(text.size()));
  }

  void endElement(std::string_view name) override {
    if (name == "plist") return;
    if (!inText_) return endContainer();
    inText_ = false;
    if (name == "key") {
      open_.back().key = std::move(text_);
      return;
    }
    auto value = leaf(name);
    if (!value) return fail("no <" + std::string(name) + ">: " + text_.substr(0, 40));
    add(std::move(*value));
  }

  // None when the list held no value.
  std::optional<PlistValue> take() { return std::move(result_); }

 private:
  struct Container {
    bool isDictionary = false;
    std::optional<std::string> key;
    std::vector<PlistDictionary::Entry> entries;
    PlistValue::Array items;
  };

  void countValue() { failIfAny(budget_.addValue(open_.size())); }
  void failIfAny(std::string excess) {
    if (!excess.empty()) fail(std::move(excess));
  }

  std::optional<PlistValue> leaf(std::string_view name) {
    if (name == "string") return PlistValue(std::move(text_));
    if (name == "true") return PlistValue(true);
    if (name == "false") return PlistValue(false);
    if (name == "data") return dataFrom(&text_);
    const std::string text = trimmed(text_);
    if (name == "integer") return integerFrom(text);
    return name == "real" ? realFrom(text) : dateFrom(text);
  }

  void endContainer() {
    Container done = std::move(open_.back());
    open_.pop_back();
    if (done.key) return fail("a key without a value");
    add(done.isDictionary ? withoutUidForm(dictionaryOf(std::move(done.entries)))
                          : PlistValue(std::move(done.items)));
  }

  void add(PlistValue value) {
    if (open_.empty()) {
      result_ = std::move(value);
    } else if (Container& inner = open_.back(); inner.isDictionary) {
      inner.entries.emplace_back(std::move(*inner.key), std::move(value));
      inner.key.reset();
    } else {
      inner.items.push_back(std::move(value));
    }
  }

  PlistBudget budget_;
  std::vector<Container> open_;
  bool sawElement_ = false, inText_ = false;
  std::string text_;
  std::optional<PlistValue> result_;
};

// Without what signatures and sloppy writers leave: zero bytes behind the document, white space
// before it.
std::string_view withoutEdges(std::string_view bytes) {
  const bool isWide = bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE") ||
                      (bytes.size() > 1 && (bytes[0] == '\0' || bytes[1] == '\0'));
  if (isWide) return bytes;
  bytes = bytes.substr(0, bytes.find_last_not_of('\0') + 1);
  bytes.remove_prefix(std::min(bytes.find_first_not_of(" \t\r\n"), bytes.size()));
  return bytes;
}

}  // namespace

std::optional<PlistValue> readXmlPlist(std::string_view bytes, const Limits& limits,
                                       std::string* reason) {
  bytes = withoutEdges(bytes);
  if (bytes.empty()) {
    *reason = "it is empty";
    return std::nullopt;
  }
  XmlPlistReader reader(limits);
  *reason = parseXml(bytes, XmlEntities::kNone, limits, reader);
  if (!reason->empty()) return std::nullopt;
  std::optional<PlistValue> value = reader.take();
  if (!value) *reason = "it holds no value";
  return value;
}

}  // namespace tovrek
