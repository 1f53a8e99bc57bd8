#include "formats/xml_tree_reading.h"

#include <optional>

#include "formats/xml_limits.h"
#include "formats/xml_parsing.h"

namespace tovrek {
namespace {

// Trees are walked by recursion.
constexpr size_t kDeepest = 256;

using Kind = XmlTree::Kind;

std::string_view prefixOf(std::string_view name) {
  const size_t colon = name.find(':');
  return colon == name.npos ? std::string_view() : name.substr(0, colon);
}

const std::string* attributeOf(const XmlTree& element, std::string_view name) {
  for (const auto& [key, value] : element.attributes) {
    if (key == name) return &value;
  }
  return nullptr;
}

// Whether the prefix, or no prefix, stands for a namespace here; by Namespaces in XML 1.0.
bool isNamespace(const XmlTree& element, std::string_view prefix) {
  if (prefix == "xml") return true;
  const std::string declaration = prefix.empty() ? "xmlns" : "xmlns:" + std::string(prefix);
  for (const XmlTree* around = &element; around != nullptr; around = around->parent) {
    if (const std::string* name = attributeOf(*around, declaration)) return !name->empty();
  }
  return false;
}

class TreeBuilder : public XmlReceiver {
 public:
  void startElement(std::string_view name, XmlAttributes attributes) override {
    if (++depth_ > kDeepest) return fail("elements lie too deep inside each other");
    at_ = &at_->append(Kind::kElement, std::string(name));
    for (size_t i = 0; i + 1 < attributes.size(); i += 2) {
      at_->attributes.emplace_back(attributes[i], attributes[i + 1]);
      if (at_->attributes.back().first.starts_with("xmlns")) declaresNamespaces_ = true;
    }
    const std::string_view prefix = prefixOf(name);
    if (!declaresNamespaces_ && prefix.empty()) return;
    at_->hasNamespace = isNamespace(*at_, prefix);
    if (at_->hasNamespace && !prefix.empty()) at_->prefixSize = prefix.size() + 1;
  }
  void endElement(std::string_view /*name*/) override {
    --depth_;
    at_ = at_->parent;
  }
  void characters(std::string_view text) override {
    const Kind kind = inCdata_ ? Kind::kCdata : Kind::kText;
    const bool continues = !at_->children.empty() && at_->children.back()->kind == kind && !fresh_;
    fresh_ = false;
    if (continues) {
      at_->children.back()->text += text;
    } else {
      at_->append(kind, "", std::string(text));
    }
  }
  void beginCdata() override { inCdata_ = fresh_ = true; }
  void endCdata() override { inCdata_ = fresh_ = false; }
  void comment(std::string_view text) override {
    at_->append(Kind::kComment, "", std::string(text));
  }
  void instruction(std::string_view target, std::string_view text) override {
    at_->append(Kind::kInstruction, std::string(target), std::string(text));
  }
  void documentType(std::string_view declaration) override {
    document_->append(Kind::kType, "", std::string(declaration));
  }

  std::unique_ptr<XmlTree> take() { return std::move(document_); }

 private:
  std::unique_ptr<XmlTree> document_ = std::make_unique<XmlTree>(XmlTree{Kind::kDocument});
  XmlTree* at_ = document_.get();  // the element that is open
  size_t depth_ = 0;
  bool declaresNamespaces_ = false;  // some element so far
  bool inCdata_ = false;
  bool fresh_ = false;  // a section begins, which is not the one before it
};

}  // namespace

std::unique_ptr<XmlTree> readXmlTree(std::string_view bytes, std::string* reason) {
  *reason = excessOfXml(bytes);
  if (!reason->empty()) return nullptr;
  TreeBuilder builder;
  *reason = parseXml(bytes, XmlEntities::kOwnAlone, limitsInForce(), builder);
  return reason->empty() ? builder.take() : nullptr;
}

}  // namespace tovrek
