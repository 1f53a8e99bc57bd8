#include "formats/xml_text.h"

#include <cstdint>

#include "formats/xml_parsing.h"
#include "host/utf8.h"

namespace tovrek {
namespace {

bool isXmlCharacter(uint32_t value) {
  if (value < 0x20) return value == '\t' || value == '\n' || value == '\r';
  return value != 0xFFFE && value != 0xFFFF;
}

// What must not stand as it is; null for all else. A carriage return would be read as a line feed.
const char* escapeInText(char c) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    case '\r':
      return "&#13;";
    default:
      return nullptr;
  }
}

const char* escapeInAttribute(char c) {
  switch (c) {
    case '"':
      return "&quot;";
    case '\n':
      return "&#10;";
    case '\t':
      return "&#9;";
    default:
      return escapeInText(c);
  }
}

void appendEscaped(std::string* to, std::string_view text, const char* (*escape)(char)) {
  for (const char c : text) {
    if (const char* escaped = escape(c); escaped != nullptr) {
      *to += escaped;
    } else {
      *to += c;
    }
  }
}

// The one element of a document.
class LoneElement : public XmlReceiver {
 public:
  void startElement(std::string_view name, XmlAttributes attributes) override {
    name_ = name;
    if (!attributes.empty()) fail("attributes");
  }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace

std::string xmlText(std::string_view bytes) {
  std::string result;
  result.reserve(bytes.size());
  while (!bytes.empty()) {
    const CodePoint next = firstCodePoint(bytes);
    if (next.length != 0 && isXmlCharacter(next.value)) result += bytes.substr(0, next.length);
    bytes.remove_prefix(next.length != 0 ? next.length : 1);
  }
  return result;
}

void appendXmlText(std::string* to, std::string_view text) {
  appendEscaped(to, text, escapeInText);
}

void appendXmlAttribute(std::string* to, std::string_view text) {
  appendEscaped(to, text, escapeInAttribute);
}

// The parser has the tables of letters; whatever else than a name is in it, it finds another
// element, or none.
bool isXmlName(const std::string& name) {
  LoneElement element;
  return parseXml("<" + name + "/>", XmlEntities::kNone, limitsInForce(), element).empty() &&
         element.name() == name;
}

}  // namespace tovrek
