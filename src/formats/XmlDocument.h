// XML documents in memory (libxml2): parse, ask by XPath, edit, write.
//
// Nothing outside of the given bytes is ever read: no DTD, no network. A document type
// declaration is refused, since none of our documents has one and a hostile one can only waste
// memory.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/XmlElement.h"
#include "host/ErrorText.h"

namespace tovrek {

// XML 1.0 cannot hold most control characters, not even escaped, nor bytes that are not UTF-8.
// `bytes` without them: what every text and attribute of a document is reduced to on writing, so
// that names out of a hostile app cannot break the document.
std::string xmlText(std::string_view bytes);

// Whether `name` can be the name of an element.
bool isXmlName(const std::string& name);

// A node of a living document: an element, attribute or text. Borrowed; invalid once the document
// goes or the node is removed.
class XmlNode {
 public:
  std::string name() const;
  // All text inside, of descendants too.
  std::string text() const;
  // None when there is no such attribute.
  std::optional<std::string> attribute(const std::string& name) const;
  // The child elements, in order.
  std::vector<XmlNode> children() const;
  // The first child element of that name.
  std::optional<XmlNode> child(std::string_view name) const;

  // Replaces all content.
  void setText(std::string_view text);
  // Adds at the end. The names must be valid.
  XmlNode append(const XmlElement& element);
  // Takes the node, with all below it, out of the document.
  void remove();

 private:
  friend class XmlDocument;
  explicit XmlNode(void* node) : node_(node) {}
  void* node_;  // xmlNode
};

enum class XmlParsing {
  kStrict,   // well-formed documents only; white space and CDATA sections are kept
  kRecover,  // takes what can be made out of a damaged document
};
enum class XmlLayout { kCompact, kIndented };

class XmlDocument {
 public:
  // None, with libxml2's reason, when nothing can be read, when elements lie too deep inside each
  // other, or when the document refers to anything outside of it. Entities that it declares itself
  // are replaced by what they stand for.
  static std::optional<XmlDocument> parse(std::string_view bytes, XmlParsing mode,
                                          ErrorText* error = nullptr);
  // Reads the file and parses it strictly, then once more with recovery if need be; the reason for
  // that stays in the slot after a success.
  static std::optional<XmlDocument> readFile(const std::string& path, ErrorText* error = nullptr);
  // A new document of the given root element. The names must be valid.
  explicit XmlDocument(const XmlElement& root);

  XmlNode root() const;
  // The nodes that match, in document order; relative paths start above the root element. None
  // when `xpath` is not a valid expression for nodes.
  std::optional<std::vector<XmlNode>> find(const std::string& xpath) const;

  // Version "1.0", encoding "UTF-8"; indentation is by four blanks.
  std::string serialize(XmlLayout layout) const;
  // Writes atomically.
  bool save(const std::string& path, XmlLayout layout, ErrorText* error = nullptr) const;

 private:
  struct Freed {
    void operator()(void* document) const noexcept;
  };
  explicit XmlDocument(void* document) : document_(document) {}
  std::unique_ptr<void, Freed> document_;  // xmlDoc
};

}  // namespace tovrek
