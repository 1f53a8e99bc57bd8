#include "formats/xml_tree_reading.h"

#include <optional>
#include <unordered_map>
#include <vector>

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

// The prefix that an attribute declares, with nothing for the default; none for all others.
std::optional<std::string> declaredPrefix(std::string_view attribute) {
  if (attribute == "xmlns") return "";
  if (attribute.starts_with("xmlns:")) return std::string(attribute.substr(6));
  return std::nullopt;
}

// Which prefixes stand for a namespace at a place in a document; by Namespaces in XML 1.0. A
// question takes the same time however many attributes the elements around have.
class NamespaceScope {
 public:
  void enter(const XmlTree& element) {
    for (const auto& [name, value] : element.attributes) {
      if (const auto prefix = declaredPrefix(name)) inForce_[*prefix].push_back(!value.empty());
    }
  }
  void leave(const XmlTree& element) {
    for (const auto& [name, value] : element.attributes) {
      if (const auto prefix = declaredPrefix(name)) inForce_[*prefix].pop_back();
    }
  }
  bool has(std::string_view prefix) const {
    if (prefix == "xml") return true;
    const auto known = inForce_.find(std::string(prefix));
    return known != inForce_.end() && !known->second.empty() && known->second.back();
  }

 private:
  std::unordered_map<std::string, std::vector<bool>> inForce_;  // the innermost last
};

class TreeBuilder : public XmlReceiver {
 public:
  void startElement(std::string_view name, XmlAttributes attributes) override {
    if (++depth_ > kDeepest) return fail("elements lie too deep inside each other");
    at_ = &at_->append(Kind::kElement, std::string(name));
    for (size_t i = 0; i + 1 < attributes.size(); i += 2) {
      at_->attributes.emplace_back(attributes[i], attributes[i + 1]);
    }
    namespaces_.enter(*at_);
    const std::string_view prefix = prefixOf(name);
    at_->hasNamespace = namespaces_.has(prefix);
    if (at_->hasNamespace && !prefix.empty()) at_->prefixSize = prefix.size() + 1;
  }
  void endElement(std::string_view /*name*/) override {
    --depth_;
    namespaces_.leave(*at_);
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
  NamespaceScope namespaces_;
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
