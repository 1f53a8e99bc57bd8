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

enum class Place { kText, kAttribute };

// What must not stand there as it is; null for all else. A carriage return would be read as a line
// feed, and in an attribute line feeds and tabs as blanks.
const char* escapeOf(char c, Place place) {
  const bool isQuoted = place == Place::kAttribute;
  if (c == '&') return "&amp;";
  if (c == '<') return "&lt;";
  if (c == '>') return "&gt;";
  if (c == '\r') return "&#13;";
  if (c == '"' && isQuoted) return "&quot;";
  if (c == '\n' && isQuoted) return "&#10;";
  return c == '\t' && isQuoted ? "&#9;" : nullptr;
}

void appendEscaped(std::string* to, std::string_view text, Place place) {
  for (const char c : text) {
    if (const char* escaped = escapeOf(c, place)) {
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
  appendEscaped(to, text, Place::kText);
}

void appendXmlAttribute(std::string* to, std::string_view text) {
  appendEscaped(to, text, Place::kAttribute);
}

// The parser has the tables of letters; whatever else than a name is in it, it finds another
// element, or none.
bool isXmlName(const std::string& name) {
  LoneElement element;
  return parseXml("<" + name + "/>", XmlEntities::kNone, limitsInForce(), element).empty() &&
         element.name() == name;
}

}  // namespace tovrek
