// Elements of a document that libxml2 holds: their texts, attributes and children.
#include <cassert>

#include "formats/XmlDocument.h"
#include "formats/XmlNodeAccess.h"
#include "formats/libxml_strings.h"

namespace tovrek {
namespace {

xmlNodePtr nodeOf(void* node) {
  return static_cast<xmlNodePtr>(node);
}

std::string takeXmlChars(xmlChar* text) {
  const std::string result = fromXmlChars(text);
  xmlFree(text);
  return result;
}

// Adds raw text: unlike xmlNodeSetContent this reads no entities out of it.
void addText(xmlNodePtr element, std::string_view text) {
  if (!text.empty()) xmlNodeAddContent(element, xmlChars(xmlText(text)));
}

}  // namespace

bool isXmlName(const std::string& name) {
  return name == xmlText(name) && xmlValidateName(xmlChars(name), 0) == 0;
}

void fillElement(xmlNodePtr node, const XmlElement& element) {
  for (const auto& [key, value] : element.attributes) {
    assert(isXmlName(key));
    xmlNewProp(node, xmlChars(key), xmlChars(xmlText(value)));
  }
  addText(node, element.text);
  for (const XmlElement& child : element.children) {
    assert(isXmlName(child.name));
    // No namespace: one of the parent's must not be handed down.
    xmlNodePtr made = xmlNewDocNode(node->doc, nullptr, xmlChars(child.name), nullptr);
    fillElement(xmlAddChild(node, made), child);
  }
}

std::string XmlNode::name() const {
  return fromXmlChars(nodeOf(node_)->name);
}

std::string XmlNode::text() const {
  return takeXmlChars(xmlNodeGetContent(nodeOf(node_)));
}

std::optional<std::string> XmlNode::attribute(const std::string& name) const {
  xmlChar* value = xmlGetProp(nodeOf(node_), xmlChars(name));
  if (value == nullptr) return std::nullopt;
  return takeXmlChars(value);
}

std::vector<XmlNode> XmlNode::children() const {
  std::vector<XmlNode> result;
  for (xmlNodePtr child = xmlFirstElementChild(nodeOf(node_)); child != nullptr;
       child = xmlNextElementSibling(child)) {
    result.push_back(XmlNode(child));
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
  const xmlNodePtr node = nodeOf(node_);
  if (node->type == XML_ATTRIBUTE_NODE) {
    xmlSetNsProp(node->parent, node->ns, node->name, xmlChars(xmlText(text)));
    return;
  }
  if (node->type != XML_ELEMENT_NODE) {
    xmlNodeSetContent(node, xmlChars(xmlText(text)));
    return;
  }
  xmlNodeSetContent(node, nullptr);
  addText(node, text);
}

XmlNode XmlNode::append(const XmlElement& element) {
  const xmlNodePtr node = nodeOf(node_);
  assert(isXmlName(element.name));
  xmlNodePtr made = xmlNewDocNode(node->doc, nullptr, xmlChars(element.name), nullptr);
  xmlAddChild(node, made);
  fillElement(made, element);
  return XmlNode(made);
}

void XmlNode::remove() {
  const xmlNodePtr node = nodeOf(node_);
  if (node->type == XML_ATTRIBUTE_NODE) {
    xmlRemoveProp(static_cast<xmlAttrPtr>(node_));
  } else {
    xmlUnlinkNode(node);
    xmlFreeNode(node);
  }
  node_ = nullptr;
}

}  // namespace tovrek
