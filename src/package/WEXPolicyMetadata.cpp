#include "package/WEXPolicyMetadata.h"

#include <fmt/format.h>

#include "formats/XmlDocument.h"
#include "formats/xml_text.h"
#include "host/files.h"

namespace tovrek {
namespace {

bool isCollected(std::string_view element) {
  return element == "PolicyName" || element == "PolicyDefault";
}

std::string textOf(const WEXPolicyMetadata::Policy& policy, std::string_view element) {
  const auto entry = policy.find(element);
  return entry == policy.end() ? std::string() : entry->second;
}

}  // namespace

bool WEXPolicyMetadata::startParsingXMLFile(const std::string& path) {
  std::string contents;
  readFile(path, &contents);  // a missing file reads as no data, which is a fault below
  readXml(contents, *this);
  if (policies_.empty()) success_ = false;
  return success_;
}

bool WEXPolicyMetadata::generateDefaultWexPolicesXMLAtFilePath(const std::string& path) {
  success_ = false;
  XmlElement list("Policies");
  for (const Policy& policy : policies_) {
    const std::string name = textOf(policy, "PolicyName");
    if (name.empty()) continue;
    if (!isXmlName(name) || name.find(':') != std::string::npos) {
      // As an element it would make the whole file unreadable: a prefix before a colon would have
      // to be declared.
      logger_.logWarning(
          fmt::format("Policy name {} cannot be an XML element, leaving it out.", name));
      continue;
    }
    list.append(XmlElement(name, textOf(policy, "PolicyDefault")));
    success_ = true;
  }
  XmlElement root("PolicyMetadata");
  root.append(std::move(list));
  ErrorText reason;
  if (!XmlDocument(root).save(path, XmlLayout::kIndented, &reason)) {
    logger_.logWarning(
        fmt::format("The default policies were not written to {}: {}", path, reason.text()));
  }
  return success_;
}

void WEXPolicyMetadata::startElement(std::string_view name) {
  if (name == "PolicyMetadata") {
    policies_.clear();
    listed_ = true;
  } else if (name == "Policy") {
    current_.emplace();
  } else if (isCollected(name) && !text_) {
    text_.emplace();
  }
}

void WEXPolicyMetadata::characters(std::string_view text) {
  if (text_) text_->append(text);
}

void WEXPolicyMetadata::endElement(std::string_view name) {
  if (isCollected(name) && current_) {
    (*current_)[std::string(name)] = text_.value_or("");
  } else if (name == "Policy" && listed_ && current_) {
    policies_.push_back(*current_);
  }
  text_.reset();
}

void WEXPolicyMetadata::parseError(std::string_view /*message*/) {
  success_ = false;
}

}  // namespace tovrek
