#include <algorithm>
#include <cassert>

#include "formats/XmlDocument.h"
#include "formats/XmlTree.h"
#include "formats/xml_text.h"

namespace tovrek {
namespace {

using Kind = XmlTree::Kind;

void collectText(const XmlTree& node, std::string* text) {
  if (node.isText()) *text += node.text;
  if (node.isElement()) {
    for (const auto& child : node.children) collectText(*child, text);
  }
}

void addText(XmlTree* element, std::string_view text) {
  std::string held = xmlText(text);
  if (!held.empty()) element->append(Kind::kText, "", std::move(held));
}

XmlTree& addElement(XmlTree* parent, const XmlElement& element) {
  assert(isXmlName(element.name));
  XmlTree& made = parent->append(Kind::kElement, element.name);
  for (const auto& [key, value] : element.attributes) {
    assert(isXmlName(key));
    made.attributes.emplace_back(key, xmlText(value));
  }
  addText(&made, element.text);
  for (const XmlElement& child : element.children) addElement(&made, child);
  return made;
}

}  // namespace

std::string XmlNode::name() const {
  return node_->localName();
}

std::string XmlNode::text() const {
  std::string text;
  collectText(*node_, &text);
  return text;
}

std::optional<std::string> XmlNode::attribute(std::string_view name) const {
  for (const auto& [key, value] : node_->attributes) {
    if (key == name) return value;
  }
  return std::nullopt;
}

std::vector<XmlNode> XmlNode::children() const {
  std::vector<XmlNode> result;
  for (const auto& child : node_->children) {
    if (child->isElement()) result.push_back(XmlNode(child.get()));
  }
  return result;
}

std::optional<XmlNode> XmlNode::child(std::string_view name) const {
  for (const XmlNode& candidate : children()) {
    if (candidate.name() == name) return candidate;
  }
  return std::nullopt;
}

void XmlNode::setText(std::string_view text) {
  node_->children.clear();
  addText(node_, text);
}

XmlNode XmlNode::append(const XmlElement& element) {
  return XmlNode(&addElement(node_, element));
}

void XmlNode::remove() {
  std::erase_if(node_->parent->children,
                [this](const auto& child) { return child.get() == node_; });
  node_ = nullptr;
}

}  // namespace tovrek
