#include "formats/XmlDocument.h"

#include <algorithm>

#include "formats/XmlTree.h"
#include "formats/xml_location.h"
#include "formats/xml_mending.h"
#include "formats/xml_tree_reading.h"
#include "formats/xml_tree_writing.h"
#include "host/files.h"

namespace tovrek {

XmlDocument::XmlDocument(std::unique_ptr<XmlTree> tree) : tree_(std::move(tree)) {}
XmlDocument::XmlDocument(XmlDocument&&) noexcept = default;
XmlDocument& XmlDocument::operator=(XmlDocument&&) noexcept = default;
XmlDocument::~XmlDocument() = default;

XmlDocument::XmlDocument(const XmlElement& root)
    : tree_(std::make_unique<XmlTree>(XmlTree{XmlTree::Kind::kDocument})) {
  XmlNode(tree_.get()).append(root);
}

std::optional<XmlDocument> XmlDocument::parse(std::string_view bytes, ErrorText* error) {
  std::string reason;
  auto tree = readXmlTree(bytes, &reason);
  if (tree) return XmlDocument(std::move(tree));
  fail(error, reason);
  return std::nullopt;
}

std::optional<XmlDocument> XmlDocument::readFile(const std::string& path, ErrorText* error) {
  std::string bytes;
  if (!tovrek::readFile(path, &bytes, error)) return std::nullopt;
  if (auto document = parse(bytes, error)) return document;
  const auto mended = mendedXml(bytes, error);
  return mended ? parse(*mended) : std::nullopt;
}

XmlNode XmlDocument::root() const {
  return XmlNode(std::ranges::find_if(tree_->children, &XmlTree::isElement, [](const auto& child) {
                   return std::ref(*child);
                 })->get());
}

std::optional<std::vector<XmlNode>> XmlDocument::find(std::string_view xpath) const {
  const auto found = elementsAt(*tree_, xpath);
  if (!found) return std::nullopt;
  std::vector<XmlNode> nodes;
  for (XmlTree* element : *found) nodes.push_back(XmlNode(element));
  return nodes;
}

std::string XmlDocument::serialize(XmlLayout layout) const {
  return writeXmlTree(*tree_, layout == XmlLayout::kIndented);
}

bool XmlDocument::save(const std::string& path, XmlLayout layout, ErrorText* error) const {
  return writeFileAtomically(path, serialize(layout), error);
}

}  // namespace tovrek
