#include "signing/verify/requirement_check.h"

#include <algorithm>
#include <cctype>

namespace tovrek::signing {
namespace {

constexpr std::string_view kSubjectPrefix = "subject.";

bool isDigit(char c) {
  return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// Runs of digits compare as numbers, so that "10.9" comes before "10.10".
int compareNumerically(std::string_view a, std::string_view b) {
  while (!a.empty() && !b.empty()) {
    if (!isDigit(a[0]) || !isDigit(b[0])) {
      if (a[0] != b[0]) return a[0] < b[0] ? -1 : 1;
      a.remove_prefix(1);
      b.remove_prefix(1);
      continue;
    }
    const auto takeNumber = [](std::string_view* text) {
      text->remove_prefix(std::min(text->find_first_not_of('0'), text->size()));
      const size_t end = static_cast<size_t>(std::find_if_not(text->begin(), text->end(), isDigit) -
                                             text->begin());
      const std::string_view number = text->substr(0, end);
      text->remove_prefix(end);
      return number;
    };
    const std::string_view x = takeNumber(&a);
    const std::string_view y = takeNumber(&b);
    if (x.size() != y.size()) return x.size() < y.size() ? -1 : 1;
    if (x != y) return x < y ? -1 : 1;
  }
  return a.empty() && b.empty() ? 0 : (a.empty() ? -1 : 1);
}

bool matchesText(std::string_view text, const RequirementExpression& e) {
  switch (e.match) {
    case RequirementMatch::kEqual:
      return text == e.value;
    case RequirementMatch::kContains:
      return text.find(e.value) != std::string_view::npos;
    case RequirementMatch::kBeginsWith:
      return text.starts_with(e.value);
    case RequirementMatch::kEndsWith:
      return text.ends_with(e.value);
    case RequirementMatch::kLessThan:
      return compareNumerically(text, e.value) < 0;
    case RequirementMatch::kGreaterThan:
      return compareNumerically(text, e.value) > 0;
    case RequirementMatch::kLessEqual:
      return compareNumerically(text, e.value) <= 0;
    case RequirementMatch::kGreaterEqual:
      return compareNumerically(text, e.value) >= 0;
    default:
      return false;
  }
}

bool matches(const PlistValue* value, const RequirementExpression& e) {
  const bool* flag = value == nullptr ? nullptr : value->boolean();
  const bool there = value != nullptr && (flag == nullptr || *flag);
  if (e.match == RequirementMatch::kAbsent) return !there;
  if (!there) return false;
  if (e.match == RequirementMatch::kExists) return true;
  if (const auto* items = value->array()) {
    return std::any_of(items->begin(), items->end(), [&](const PlistValue& item) {
      return item.string() != nullptr && matchesText(*item.string(), e);
    });
  }
  return value->string() != nullptr && matchesText(*value->string(), e);
}

bool certificateFieldMatches(const Certificate* certificate, const RequirementExpression& e) {
  if (certificate == nullptr || !e.key.starts_with(kSubjectPrefix)) return false;
  const auto value = certificate->subject(e.key.substr(kSubjectPrefix.size()));
  const PlistValue text(value.value_or(""));
  return matches(value ? &text : nullptr, e);
}

// Only the presence of an extension can be asked for here.
bool extensionMatches(const Certificate* certificate, const RequirementExpression& e) {
  if (certificate == nullptr) return false;
  const bool there = certificate->hasExtension(oidText(e.key));
  if (e.match == RequirementMatch::kAbsent) return !there;
  return there && e.match == RequirementMatch::kExists;
}

// Software of Apple's own comes from this authority.
bool isApplesOwn(const CertificateChain& chain) {
  const Certificate* issuer = chain.at(1);
  return chain.isApples() && issuer != nullptr &&
         issuer->commonName() == "Apple Code Signing Certification Authority";
}

}  // namespace

bool satisfies(const RequirementContext& context, const RequirementExpression& e) {
  switch (e.op) {
    case RequirementOp::kTrue:
      return true;
    case RequirementOp::kIdentifier:
      return e.key == context.identifier;
    case RequirementOp::kAppleAnchor:
      return isApplesOwn(context.chain);
    case RequirementOp::kAppleGenericAnchor:
      return context.chain.isApples();
    case RequirementOp::kAnchorHash: {
      const Certificate* certificate = context.chain.at(e.certificate);
      return certificate != nullptr && certificate->sha1() == e.key;
    }
    case RequirementOp::kInfoKeyValue: {
      const std::string* value = stringForKey(context.info, e.key);
      return value != nullptr && *value == e.value;
    }
    case RequirementOp::kAnd:
      return satisfies(context, e.operands[0]) && satisfies(context, e.operands[1]);
    case RequirementOp::kOr:
      return satisfies(context, e.operands[0]) || satisfies(context, e.operands[1]);
    case RequirementOp::kNot:
      return !satisfies(context, e.operands[0]);
    case RequirementOp::kCdHash:
      return std::find(context.cdHashes.begin(), context.cdHashes.end(), e.key) !=
             context.cdHashes.end();
    case RequirementOp::kInfoKeyField:
      return matches(context.info.find(e.key), e);
    case RequirementOp::kEntitlementField:
      return matches(context.entitlements.find(e.key), e);
    case RequirementOp::kCertificateField:
      return certificateFieldMatches(context.chain.at(e.certificate), e);
    case RequirementOp::kCertificateGeneric:
      return extensionMatches(context.chain.at(e.certificate), e);
    case RequirementOp::kPlatform:
      return e.number == context.platform;
    default:
      return false;
  }
}

}  // namespace tovrek::signing
