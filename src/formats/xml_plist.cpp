// The XML form, in any encoding that the C library knows. Read by events, so that nothing but the
// values themselves takes memory; and by expat, which starts faster than libxml2, with all that
// one loads: `codesign` is started for each code object of an app.
#include <expat.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdio>
#include <ctime>
#include <memory>

#include "formats/PlistBudget.h"
#include "formats/base64.h"
#include "formats/plist_readers.h"
#include "formats/xml_encoding.h"
#include "host/Freer.h"
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

std::optional<PlistValue> dataFrom(std::string_view text) {
  std::string digits;
  digits.reserve(text.size());
  for (const char c : text) {
    if (c != ' ' && c != '\t' && c != '\n' && c != '\r') digits += c;
  }
  auto bytes = bytesFromBase64(digits);
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

class XmlPlistReader {
 public:
  explicit XmlPlistReader(const Limits& limits) : budget_(limits) {}

  void start(std::string_view name) {
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

  void characters(std::string_view text) {
    if (!inText_) {
      if (text.find_first_not_of(" \t\r\n") != std::string_view::npos) {
        fail("a text outside of an element");
      }
      return;
    }
    text_ += text;
    failIfAny(budget_.addBytes(text.size()));
  }

  void end(std::string_view name) {
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

  // Empty unless something is wrong with the list; the reading is to end then.
  const std::string& fault() const { return fault_; }
  std::optional<PlistValue> take() {
    if (!result_ && fault_.empty()) fail("it holds no value");
    return fault_.empty() ? std::move(result_) : std::nullopt;
  }

 private:
  struct Container {
    bool isDictionary = false;
    std::optional<std::string> key;
    std::vector<PlistDictionary::Entry> entries;
    PlistValue::Array items;
  };

  void fail(std::string fault) {
    if (fault_.empty()) fault_ = std::move(fault);
  }
  void countValue() { failIfAny(budget_.addValue(open_.size())); }
  void failIfAny(std::string excess) {
    if (!excess.empty()) fail(std::move(excess));
  }

  std::optional<PlistValue> leaf(std::string_view name) {
    if (name == "string") return PlistValue(std::move(text_));
    if (name == "true") return PlistValue(true);
    if (name == "false") return PlistValue(false);
    if (name == "data") return dataFrom(text_);
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
  std::string text_, fault_;
  std::optional<PlistValue> result_;
};

// Lists have one attribute in their first element. expat goes through all that are declared for an
// element each time that the element comes.
constexpr size_t kMostDeclaredAttributes = 100;

// One document on its way through expat, up to the first fault.
class Reading {
 public:
  Reading(const Limits& limits, const char* encoding)
      : list_(limits), mostAttributes_(limits.xmlAttributes), parser_(XML_ParserCreate(encoding)) {
    if (!parser_) {
      fault_ = "out of memory";
      return;
    }
    XML_SetUserData(parser_.get(), this);
    XML_SetElementHandler(parser_.get(), onStart, onEnd);
    XML_SetCharacterDataHandler(parser_.get(), onCharacters);
    // With a handler for all else expat replaces no entity that the document declares; it comes to
    // the handlers below, like one that nobody declared.
    XML_SetDefaultHandler(parser_.get(), [](void*, const XML_Char*, int) {});
    XML_SetSkippedEntityHandler(parser_.get(), onEntity);
    XML_SetAttlistDeclHandler(parser_.get(), onDeclaredAttribute);
    XML_SetExternalEntityRefHandlerArg(parser_.get(), this);
    XML_SetExternalEntityRefHandler(parser_.get(), onOutsideEntity);
  }

  void read(std::string_view bytes) {
    // Sizes are ints there.
    constexpr size_t kPiece = size_t{1} << 20;
    while (fault_.empty()) {
      const std::string_view piece = bytes.substr(0, kPiece);
      bytes.remove_prefix(piece.size());
      const XML_Status status = XML_Parse(parser_.get(), piece.data(),
                                          static_cast<int>(piece.size()), bytes.empty() ? 1 : 0);
      if (status != XML_STATUS_OK && fault_.empty()) {
        stop(XML_ErrorString(XML_GetErrorCode(parser_.get())));
      }
      if (bytes.empty()) return;
    }
  }

  // None, with what is wrong.
  std::optional<PlistValue> take(std::string* reason) {
    std::optional<PlistValue> value = list_.take();
    *reason = fault_.empty() ? list_.fault() : fault_;
    return reason->empty() ? std::move(value) : std::nullopt;
  }

 private:
  static Reading& of(void* data) { return *static_cast<Reading*>(data); }
  static void onStart(void* data, const XML_Char* name, const XML_Char** attributes) {
    size_t words = 0;  // a name and a value for each
    while (attributes[words] != nullptr) ++words;
    if (words / 2 > of(data).mostAttributes_) of(data).stop("an element has too many attributes");
    of(data).list([&](XmlPlistReader& list) { list.start(name); });
  }
  static void onEnd(void* data, const XML_Char* name) {
    of(data).list([&](XmlPlistReader& list) { list.end(name); });
  }
  static void onCharacters(void* data, const XML_Char* text, int length) {
    of(data).list([&](XmlPlistReader& list) {
      list.characters({text, static_cast<size_t>(length)});
    });
  }
  static void onDeclaredAttribute(void* data, const XML_Char* /*element*/,
                                  const XML_Char* /*attribute*/, const XML_Char* /*type*/,
                                  const XML_Char* /*value*/, int /*isRequired*/) {
    if (++of(data).declaredAttributes_ <= kMostDeclaredAttributes) return;
    of(data).stop("too many attributes are declared");
  }
  static void onEntity(void* data, const XML_Char* name, int isParameter) {
    if (isParameter == 0) of(data).stop("unknown entity " + std::string(name));
  }
  // The argument is what was set for it, whatever its type.
  static int onOutsideEntity(XML_Parser argument, const XML_Char* /*context*/,
                             const XML_Char* /*base*/, const XML_Char* /*systemId*/,
                             const XML_Char* /*publicId*/) {
    of(argument).stop("an entity from outside of the document");
    return XML_STATUS_ERROR;
  }

  // Some events still come after a stop.
  void list(const auto& tell) {
    if (!fault_.empty()) return;
    tell(list_);
    if (!list_.fault().empty()) stop(list_.fault());
  }
  void stop(const std::string& fault) {
    if (!fault_.empty()) return;
    fault_ = "line " + std::to_string(XML_GetCurrentLineNumber(parser_.get())) + ": " + fault;
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  XmlPlistReader list_;
  const uint64_t mostAttributes_;
  std::unique_ptr<XML_ParserStruct, Freer<XML_ParserFree>> parser_;
  std::string fault_;
  size_t declaredAttributes_ = 0;
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

// Whether expat reads documents that declare this encoding; none is UTF-8 or UTF-16 by its mark.
bool readsEncoding(std::string_view encoding) {
  return encoding.empty() || encoding == "utf-8" || encoding == "us-ascii" ||
         encoding == "iso-8859-1" || encoding.starts_with("utf-16");
}

}  // namespace

std::optional<PlistValue> readXmlPlist(std::string_view bytes, const Limits& limits,
                                       std::string* reason) {
  bytes = withoutEdges(bytes);
  if (bytes.empty() || bytes.size() > INT_MAX) {
    *reason = bytes.empty() ? "it is empty" : "it is too long";
    return std::nullopt;
  }
  const std::string encoding = declaredEncoding(bytes);
  std::string converted;
  if (!readsEncoding(encoding)) {
    auto utf8 = utf8From(bytes, encoding);
    if (!utf8) {
      *reason =
          "line 1: the text is not in the encoding that it declares, or nobody knows that one";
      return std::nullopt;
    }
    converted = std::move(*utf8);
    bytes = converted;
  }
  Reading reading(limits, converted.empty() ? nullptr : "UTF-8");
  reading.read(bytes);
  return reading.take(reason);
}

}  // namespace tovrek
