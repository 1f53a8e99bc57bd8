// XML documents in memory: parse, ask for elements, edit, write.
//
// Nothing outside of the given bytes is ever read: no DTD, no network.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/XmlElement.h"
#include "host/ErrorText.h"

namespace tovrek {

struct XmlTree;

// An element of a living document. Borrowed; invalid once the document goes or the element is
// removed.
class XmlNode {
 public:
  // Without the prefix of a namespace.
  std::string name() const;
  // All text inside, of descendants too.
  std::string text() const;
  // None when the element has no such attribute. The name is the one that is written.
  std::optional<std::string> attribute(std::string_view name) const;
  // The child elements, in order.
  std::vector<XmlNode> children() const;
  // The first child element of that name.
  std::optional<XmlNode> child(std::string_view name) const;

  // Replaces all content.
  void setText(std::string_view text);
  // Adds at the end. The names must be valid.
  XmlNode append(const XmlElement& element);
  // Takes the element, with all below it, out of the document.
  void remove();

 private:
  friend class XmlDocument;
  explicit XmlNode(XmlTree* node) : node_(node) {}
  XmlTree* node_;
};

enum class XmlLayout { kCompact, kIndented };

class XmlDocument {
 public:
  // None, with the reason, for what is not well formed, when elements lie too deep inside each
  // other, or when the document declares anything outside of it. White space, CDATA sections,
  // comments and instructions are kept; entities that it declares itself are replaced by what they
  // stand for.
  static std::optional<XmlDocument> parse(std::string_view bytes, ErrorText* error = nullptr);
  // Reads the file; one that is not well formed as far as it makes sense (see xml_mending.h), and
  // the reason for that stays in the slot after the success.
  static std::optional<XmlDocument> readFile(const std::string& path, ErrorText* error = nullptr);
  // A new document of the given root element. The names must be valid.
  explicit XmlDocument(const XmlElement& root);
  XmlDocument(XmlDocument&&) noexcept;
  XmlDocument& operator=(XmlDocument&&) noexcept;
  ~XmlDocument();

  XmlNode root() const;
  // The elements at a location path, such as "//Icon[@size='2']" (see xml_location.h), in document
  // order. None when `xpath` is none.
  std::optional<std::vector<XmlNode>> find(std::string_view xpath) const;

  // Version "1.0", encoding "UTF-8"; indentation is by four blanks.
  std::string serialize(XmlLayout layout) const;
  // Writes atomically.
  bool save(const std::string& path, XmlLayout layout, ErrorText* error = nullptr) const;

 private:
  explicit XmlDocument(std::unique_ptr<XmlTree> tree);
  std::unique_ptr<XmlTree> tree_;
};

}  // namespace tovrek
