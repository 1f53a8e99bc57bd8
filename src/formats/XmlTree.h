// The tree that an XmlDocument holds. For the XML sources alone.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tovrek {

struct XmlTree {
  enum class Kind { kDocument, kElement, kText, kCdata, kComment, kInstruction, kType };

  Kind kind;
  XmlTree* parent = nullptr;
  std::string name{};  // of an element, as written; an instruction's target
  std::string text{};  // of all but elements; a document type's is its whole declaration
  // What the name begins with where that stands for a namespace, with the colon.
  size_t prefixSize = 0;
  bool hasNamespace = false;
  std::vector<std::pair<std::string, std::string>> attributes{};
  std::vector<std::unique_ptr<XmlTree>> children{};

  bool isElement() const { return kind == Kind::kElement; }
  bool isText() const { return kind == Kind::kText || kind == Kind::kCdata; }
  std::string localName() const { return name.substr(prefixSize); }

  // Adds a node at the end.
  XmlTree& append(Kind childKind, std::string childName, std::string childText = {}) {
    children.push_back(std::make_unique<XmlTree>(
        XmlTree{childKind, this, std::move(childName), std::move(childText)}));
    return *children.back();
  }
};

}  // namespace tovrek
