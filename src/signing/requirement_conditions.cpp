#include "signing/requirement_conditions.h"

#include <fmt/format.h>

#include <ctime>

#include "formats/Certificate.h"
#include "formats/hex.h"
#include "host/clock.h"
#include "host/files.h"

namespace tovrek::signing {
namespace {

using Expression = RequirementExpression;
using Kind = RequirementToken::Kind;

constexpr int32_t kLeaf = 0;
constexpr int32_t kRoot = -1;
constexpr size_t kHashSize = 20;

struct Word {
  std::string_view text;
  RequirementOp op;
};
constexpr Word kConstants[] = {
    {"always", RequirementOp::kTrue},         {"true", RequirementOp::kTrue},
    {"never", RequirementOp::kFalse},         {"false", RequirementOp::kFalse},
    {"notarized", RequirementOp::kNotarized}, {"legacy", RequirementOp::kLegacy},
};

// Prefixes of certificate fields that are object identifiers.
constexpr Word kFieldPrefixes[] = {
    {"field.", RequirementOp::kCertificateGeneric},
    {"policy.", RequirementOp::kCertificatePolicy},
    {"timestamp.", RequirementOp::kCertificateDate},
};

// From "2011-07-01 00:00:00 +0000", in seconds since 1970.
std::optional<int64_t> secondsFromDescription(const std::string& text) {
  std::tm parts{};
  const char* end = ::strptime(text.c_str(), "%Y-%m-%d %H:%M:%S", &parts);
  if (end == nullptr || std::string_view(end) != " +0000") return std::nullopt;
  return ::timegm(&parts);
}

struct Comparison {
  std::string_view sign;
  RequirementMatch text, date;
};
constexpr Comparison kComparisons[] = {
    {"<", RequirementMatch::kLessThan, RequirementMatch::kBefore},
    {">", RequirementMatch::kGreaterThan, RequirementMatch::kAfter},
    {"<=", RequirementMatch::kLessEqual, RequirementMatch::kOnOrBefore},
    {">=", RequirementMatch::kGreaterEqual, RequirementMatch::kOnOrAfter},
};

std::optional<RequirementOp> constantNamed(const RequirementToken& token) {
  for (const Word& word : kConstants) {
    if (token.isWord(word.text)) return word.op;
  }
  return std::nullopt;
}

// Recursive descent, one function for each rule. Each answers false after it has put the error
// into the slot.
class ConditionParser {
 public:
  explicit ConditionParser(RequirementTokens* tokens) : tokens_(*tokens) {}

  bool condition(Expression* out);

 private:
  bool anchor(Expression* out);
  bool certificate(Expression* out);
  bool slot(Expression* out);
  bool ofCertificate(Expression* out);
  bool certificateField(Expression* out);
  bool certificateHash(Expression* out);
  bool bracketed(RequirementOp op, Expression* out);
  bool match(Expression* out);
  bool equality(Expression* out);
  bool date(RequirementMatch match, Expression* out);

  RequirementTokens& tokens_;
};

bool ConditionParser::anchor(Expression* out) {
  const bool genericFirst = tokens_.takeWord("generic");
  if (tokens_.takeWord("apple")) {
    if (genericFirst || tokens_.takeWord("generic")) {
      out->op = RequirementOp::kAppleGenericAnchor;
      return true;
    }
    out->op = RequirementOp::kAppleAnchor;
    if (!tokens_.isString() || tokens_.isKeyword()) {
      return true;
    }
    out->op = RequirementOp::kNamedAnchor;
    return tokens_.wantString(&out->key);
  }
  if (genericFirst) return tokens_.unexpected("\"apple\"");
  if (tokens_.takeWord("trusted")) {
    out->op = RequirementOp::kTrustedCertificates;
    return true;
  }
  out->certificate = kRoot;
  return ofCertificate(out);
}

bool ConditionParser::certificate(Expression* out) {
  if (tokens_.takeWord("trusted")) {
    out->op = RequirementOp::kTrustedCertificates;
    return true;
  }
  return slot(out) && ofCertificate(out);
}

bool ConditionParser::slot(Expression* out) {
  tokens_.splitWord("trusted");
  if (tokens_.takeWord("leaf")) {
    out->certificate = kLeaf;
    return true;
  }
  if (tokens_.takeWord("root") || tokens_.takeWord("anchor")) {
    out->certificate = kRoot;
    return true;
  }
  const bool negative = tokens_.takeSign("-");
  if (!tokens_.wantNumber("leaf, root or a number", &out->certificate)) return false;
  if (negative) out->certificate = -out->certificate;
  return true;
}

bool ConditionParser::ofCertificate(Expression* out) {
  if (tokens_.takeWord("trusted")) {
    out->op = RequirementOp::kTrustedCertificate;
    return true;
  }
  if (tokens_.takeEquals()) return certificateHash(out);
  if (tokens_.takeSign("[")) return certificateField(out);
  return tokens_.unexpected("\"=\", \"[\" or \"trusted\"");
}

// The hash itself, or a file with the certificate.
bool ConditionParser::certificateHash(Expression* out) {
  out->op = RequirementOp::kAnchorHash;
  const RequirementToken& token = tokens_.token();
  if (token.kind == Kind::kHash) {
    return tokens_.wantHash(kHashSize, "a certificate's hash has 40 digits", &out->key);
  }
  if (token.kind != Kind::kPath && token.kind != Kind::kString) {
    return tokens_.unexpected("a hash or the path of a certificate");
  }
  std::string der;
  ErrorText reason;
  if (!readFile(token.text, &der, &reason)) {
    return tokens_.failHere(fmt::format("{}: {}", token.text, reason.text()));
  }
  const auto certificate = Certificate::fromDer(der);
  if (!certificate) {
    return tokens_.failHere(fmt::format("{}: not a DER-encoded certificate", token.text));
  }
  out->key = certificate->sha1();
  tokens_.advance();
  return true;
}

bool ConditionParser::certificateField(Expression* out) {
  const RequirementToken named = tokens_.token();
  if (!tokens_.wantKey(&out->key)) return false;
  out->op = RequirementOp::kCertificateField;
  for (const Word& prefix : kFieldPrefixes) {
    if (!out->key.starts_with(prefix.text)) continue;
    const std::string identifier = out->key.substr(prefix.text.size());
    const auto raw = identifier.starts_with("0x")
                         ? bytesFromHex(std::string_view(identifier).substr(2))
                         : std::nullopt;
    out->op = prefix.op;
    out->key = raw ? *raw : oidContents(identifier);
    if (!out->key.empty()) break;
    return tokens_.failAt(named, fmt::format("\"{}\" is no object identifier", identifier));
  }
  return tokens_.wantSign("]") && match(out);
}

bool ConditionParser::bracketed(RequirementOp op, Expression* out) {
  out->op = op;
  return tokens_.wantSign("[") && tokens_.wantKey(&out->key) && tokens_.wantSign("]") && match(out);
}

// Nothing asks for the presence alone.
bool ConditionParser::match(Expression* out) {
  out->match = RequirementMatch::kExists;
  if (tokens_.takeWord("exists")) return true;
  if (tokens_.takeWord("absent")) {
    out->match = RequirementMatch::kAbsent;
    return true;
  }
  if (tokens_.takeEquals()) return equality(out);
  if (tokens_.takeSign("~")) {
    out->match = RequirementMatch::kContains;
    return tokens_.wantString(&out->value);
  }
  for (const Comparison& comparison : kComparisons) {
    if (!tokens_.takeSign(comparison.sign)) continue;
    if (tokens_.token().isWord("timestamp")) return date(comparison.date, out);
    out->match = comparison.text;
    return tokens_.wantString(&out->value);
  }
  return true;
}

// An asterisk at an end lets any text stand there.
bool ConditionParser::equality(Expression* out) {
  if (tokens_.token().isWord("timestamp")) return date(RequirementMatch::kOn, out);
  const bool openStart = tokens_.takeSign("*");
  if (!tokens_.wantString(&out->value)) return false;
  const bool openEnd = tokens_.takeSign("*");
  out->match = openStart && openEnd ? RequirementMatch::kContains
               : openStart          ? RequirementMatch::kEndsWith
               : openEnd            ? RequirementMatch::kBeginsWith
                                    : RequirementMatch::kEqual;
  return true;
}

bool ConditionParser::date(RequirementMatch match, Expression* out) {
  tokens_.advance();
  const auto seconds = tokens_.token().kind == Kind::kString
                           ? secondsFromDescription(tokens_.token().text)
                           : std::nullopt;
  if (!seconds) return tokens_.unexpected("a date as in \"2011-07-01 00:00:00 +0000\"");
  out->match = match;
  out->date = *seconds - static_cast<int64_t>(kReferenceDateOffset);
  tokens_.advance();
  return true;
}

bool ConditionParser::condition(Expression* out) {
  if (const auto constant = constantNamed(tokens_.token())) {
    out->op = *constant;
    tokens_.advance();
    return true;
  }
  if (tokens_.takeWord("identifier")) {
    out->op = RequirementOp::kIdentifier;
    tokens_.takeEquals();
    return tokens_.wantString(&out->key);
  }
  if (tokens_.takeWord("anchor")) return anchor(out);
  if (tokens_.takeWord("certificate") || tokens_.takeWord("cert")) return certificate(out);
  if (tokens_.takeWord("info")) return bracketed(RequirementOp::kInfoKeyField, out);
  if (tokens_.takeWord("entitlement")) return bracketed(RequirementOp::kEntitlementField, out);
  if (tokens_.takeWord("cdhash")) {
    out->op = RequirementOp::kCdHash;
    tokens_.takeEquals();
    return tokens_.wantHash(kHashSize, "a code directory's hash has 40 digits", &out->key);
  }
  if (tokens_.takeWord("platform")) {
    out->op = RequirementOp::kPlatform;
    tokens_.takeEquals();
    int32_t number = 0;
    if (!tokens_.wantNumber("a number", &number)) return false;
    out->number = static_cast<uint32_t>(number);
    return true;
  }
  return tokens_.unexpected("a condition");
}

}  // namespace

bool parseCondition(RequirementTokens* tokens, RequirementExpression* out) {
  return ConditionParser(tokens).condition(out);
}

}  // namespace tovrek::signing
