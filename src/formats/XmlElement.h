// An XML element as a plain value, for documents that are built up in code.
#pragma once

#include <initializer_list>
#include <string>
#include <utility>
#include <vector>

namespace tovrek {

struct XmlElement {
  explicit XmlElement(std::string elementName, std::string content = {})
      : name(std::move(elementName)), text(std::move(content)) {}

  // Of elements that hold nothing but a text each.
  static XmlElement ofTexts(std::string elementName,
                            std::initializer_list<std::pair<const char*, std::string>> children) {
    XmlElement element(std::move(elementName));
    for (const auto& [name, text] : children) element.append(XmlElement(name, text));
    return element;
  }

  XmlElement& attribute(std::string key, std::string value) {
    attributes.emplace_back(std::move(key), std::move(value));
    return *this;
  }
  XmlElement& append(XmlElement child) {
    children.push_back(std::move(child));
    return *this;
  }

  std::string name;
  std::string text;  // stands before the children
  std::vector<std::pair<std::string, std::string>> attributes;
  std::vector<XmlElement> children;
};

}  // namespace tovrek
