// An XML element as a plain value, for documents that are built up in code.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tovrek {

struct XmlElement {
  explicit XmlElement(std::string elementName, std::string content = {})
      : name(std::move(elementName)), text(std::move(content)) {}

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
