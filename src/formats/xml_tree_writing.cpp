#include "formats/xml_tree_writing.h"

#include <algorithm>

#include "formats/xml_text.h"

namespace tovrek {
namespace {

using Kind = XmlTree::Kind;

class TreeWriter {
 public:
  explicit TreeWriter(bool indented) : indented_(indented) {}

  void node(const XmlTree& node) {
    switch (node.kind) {
      case Kind::kDocument:
        for (const auto& child : node.children) {
          this->node(*child);
          text += '\n';
        }
        break;
      case Kind::kElement:
        element(node);
        break;
      case Kind::kText:
        appendXmlText(&text, node.text);
        break;
      case Kind::kCdata:
        between("<![CDATA[", node.text, "]]>");
        break;
      case Kind::kComment:
        between("<!--", node.text, "-->");
        break;
      case Kind::kInstruction:
        between("<?" + node.name, (node.text.empty() ? "" : " ") + node.text, "?>");
        break;
      case Kind::kType:
        text += node.text;
        break;
    }
  }

  std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";

 private:
  void between(std::string_view opening, std::string_view content, std::string_view closing) {
    text.append(opening).append(content).append(closing);
  }

  void attributes(const XmlTree& element, bool ofNamespaces) {
    for (const auto& [name, value] : element.attributes) {
      const bool isNamespace = name == "xmlns" || name.starts_with("xmlns:");
      if (isNamespace != ofNamespaces) continue;
      text.append(" ").append(name).append("=\"");
      appendXmlAttribute(&text, value);
      text += '"';
    }
  }

  void element(const XmlTree& element) {
    text.append("<").append(element.name);
    attributes(element, true);
    attributes(element, false);
    if (element.children.empty()) {
      text += "/>";
      return;
    }
    text += '>';
    const bool indentsAround = indented_;
    indented_ = indented_ && std::ranges::none_of(element.children, [](const auto& child) {
                  return child->isText();
                });
    ++depth_;
    for (const auto& child : element.children) {
      newLine();
      node(*child);
    }
    --depth_;
    newLine();
    indented_ = indentsAround;
    text.append("</").append(element.name).append(">");
  }

  void newLine() {
    if (indented_) text.append("\n").append(depth_ * 4, ' ');
  }

  bool indented_;
  size_t depth_ = 0;
};

}  // namespace

std::string writeXmlTree(const XmlTree& document, bool indented) {
  TreeWriter writer(indented);
  writer.node(document);
  return std::move(writer.text);
}

}  // namespace tovrek
