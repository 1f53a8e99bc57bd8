#include "signing/RequirementParser.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <ctime>

#include "formats/Certificate.h"
#include "formats/hex.h"
#include "host/clock.h"
#include "host/files.h"
#include "signing/RequirementLexer.h"

namespace tovrek::signing {
namespace {

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

std::optional<int32_t> numberFrom(const std::string& text) {
  int32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, value);
  if (code != std::errc() || stop != end) return std::nullopt;
  return value;
}

// Recursive descent, one function for each rule. Each answers false after it has put the error
// into the slot.
class Parser {
 public:
  Parser(std::string_view source, ErrorText* error)
      : source_(source), error_(error), lexer_(source), token_(lexer_.next()) {}

  bool whole(RequirementExpression* out) {
    int height = 0;
    return disjunction(out, &height, 0) && (skipSemicolons(), true) &&
           (token_.kind == Kind::kEnd || unexpected("the end, \"and\" or \"or\""));
  }
  bool set(std::map<uint32_t, std::string>* out);

 private:
  using Expression = RequirementExpression;

  bool failHere(std::string_view text) {
    return fail(error_, fmt::format("invalid requirement: {}: {}",
                                    positionText(source_, token_.offset), text));
  }
  bool unexpected(std::string_view wanted);
  void advance() { token_ = lexer_.next(); }
  bool take(bool matches) {
    if (matches) advance();
    return matches;
  }
  bool takeWord(std::string_view word) { return take(token_.isWord(word)); }
  bool takeSign(std::string_view sign) { return take(token_.isSign(sign)); }
  bool takeEquals() { return takeSign("=") || takeSign("=="); }
  bool wantSign(std::string_view sign) {
    return takeSign(sign) || unexpected(fmt::format("\"{}\"", sign));
  }
  void skipSemicolons() {
    while (takeSign(";")) {
    }
  }

  bool disjunction(Expression* out, int* height, int depth);
  bool conjunction(Expression* out, int* height, int depth);
  bool join(RequirementOp op, Expression* left, int* height, Expression right, int rightHeight);
  bool primary(Expression* out, int* height, int depth);
  bool inParentheses(Expression* out, int* height, int depth);
  bool simple(Expression* out);
  bool anchor(Expression* out);
  bool certificate(Expression* out);
  bool slot(Expression* out);
  bool ofCertificate(Expression* out);
  bool certificateField(Expression* out);
  bool certificateHash(Expression* out);
  bool bracketed(RequirementOp op, Expression* out);
  bool cdHash(Expression* out);
  bool platform(Expression* out);
  bool key(std::string* out);
  bool isString() const;
  bool string(std::string* out);
  bool match(Expression* out);
  bool equality(Expression* out);
  bool date(RequirementMatch match, Expression* out);

  std::string_view source_;
  ErrorText* error_;
  RequirementLexer lexer_;
  RequirementToken token_;
};

bool Parser::unexpected(std::string_view wanted) {
  if (token_.kind == Kind::kBad) return failHere(token_.text);
  if (token_.kind == Kind::kEnd) return failHere(fmt::format("expected {}, found the end", wanted));
  size_t end = token_.offset;
  RequirementLexer again(source_.substr(end));
  again.next();
  const RequirementToken following = again.next();
  std::string_view found = source_.substr(end, following.offset);
  found = found.substr(0, found.find_last_not_of(" \t\r\n") + 1);
  return failHere(fmt::format("expected {}, found {}", wanted, found));
}

bool Parser::set(std::map<uint32_t, std::string>* out) {
  skipSemicolons();
  do {
    uint32_t type = 0;
    for (uint32_t i = 1; type == 0 && i < std::size(kRequirementTypes); ++i) {
      if (token_.isWord(kRequirementTypes[i])) type = i;
    }
    if (type == 0) return unexpected("host, guest, designated, library or plugin");
    if (out->count(type) != 0) return failHere("this type was there before");
    advance();
    Expression expression;
    int height = 0;
    if (!wantSign("=>") || !disjunction(&expression, &height, 0)) return false;
    (*out)[type] = expression.blob();
    skipSemicolons();
  } while (token_.kind != Kind::kEnd);
  return true;
}

bool Parser::join(RequirementOp op, Expression* left, int* height, Expression right,
                  int rightHeight) {
  *height = std::max(*height, rightHeight) + 1;
  if (*height > kDeepestRequirement) return failHere("this is too long or nested too deeply");
  Expression joined;
  joined.op = op;
  joined.operands.push_back(std::move(*left));
  joined.operands.push_back(std::move(right));
  *left = std::move(joined);
  return true;
}

bool Parser::disjunction(Expression* out, int* height, int depth) {
  if (!conjunction(out, height, depth)) return false;
  while (takeWord("or")) {
    Expression right;
    int rightHeight = 0;
    if (!conjunction(&right, &rightHeight, depth) ||
        !join(RequirementOp::kOr, out, height, std::move(right), rightHeight)) {
      return false;
    }
  }
  return true;
}

bool Parser::conjunction(Expression* out, int* height, int depth) {
  if (!primary(out, height, depth)) return false;
  while (takeWord("and")) {
    Expression right;
    int rightHeight = 0;
    if (!primary(&right, &rightHeight, depth) ||
        !join(RequirementOp::kAnd, out, height, std::move(right), rightHeight)) {
      return false;
    }
  }
  return true;
}

bool Parser::primary(Expression* out, int* height, int depth) {
  if (depth >= kDeepestRequirement) return failHere("this is nested too deeply");
  if (takeSign("!") || takeWord("not")) {
    out->op = RequirementOp::kNot;
    if (!primary(&out->operands.emplace_back(), height, depth + 1)) return false;
    if (++*height > kDeepestRequirement) return failHere("this is nested too deeply");
    return true;
  }
  if (takeSign("(")) return inParentheses(out, height, depth);
  return simple(out);
}

// A lone name in parentheses stands for a requirement that the system knows under it.
bool Parser::inParentheses(Expression* out, int* height, int depth) {
  if (isString() && !isRequirementKeyword(token_.text)) {
    out->op = RequirementOp::kNamedCode;
    return string(&out->key) && wantSign(")");
  }
  return disjunction(out, height, depth + 1) && wantSign(")");
}

bool Parser::simple(Expression* out) {
  if (const auto constant = constantNamed(token_)) {
    out->op = *constant;
    advance();
    return true;
  }
  if (takeWord("identifier")) {
    out->op = RequirementOp::kIdentifier;
    takeEquals();
    return string(&out->key);
  }
  if (takeWord("anchor")) return anchor(out);
  if (takeWord("certificate") || takeWord("cert")) return certificate(out);
  if (takeWord("info")) return bracketed(RequirementOp::kInfoKeyField, out);
  if (takeWord("entitlement")) return bracketed(RequirementOp::kEntitlementField, out);
  if (takeWord("cdhash")) return cdHash(out);
  if (takeWord("platform")) return platform(out);
  return unexpected("a condition");
}

bool Parser::anchor(Expression* out) {
  const bool genericFirst = takeWord("generic");
  if (takeWord("apple")) {
    if (genericFirst || takeWord("generic")) {
      out->op = RequirementOp::kAppleGenericAnchor;
      return true;
    }
    out->op = RequirementOp::kAppleAnchor;
    if (!isString() || (token_.kind == Kind::kWord && isRequirementKeyword(token_.text))) {
      return true;
    }
    out->op = RequirementOp::kNamedAnchor;
    return string(&out->key);
  }
  if (genericFirst) return unexpected("\"apple\"");
  if (takeWord("trusted")) {
    out->op = RequirementOp::kTrustedCertificates;
    return true;
  }
  out->certificate = kRoot;
  return ofCertificate(out);
}

bool Parser::certificate(Expression* out) {
  if (takeWord("trusted")) {
    out->op = RequirementOp::kTrustedCertificates;
    return true;
  }
  return slot(out) && ofCertificate(out);
}

// What is printed for a trusted certificate has no blank behind the slot.
bool Parser::slot(Expression* out) {
  constexpr std::string_view kTrusted = "trusted";
  if (token_.kind == Kind::kWord && token_.text.size() > kTrusted.size() &&
      token_.text.ends_with(kTrusted)) {
    const size_t length = token_.text.size() - kTrusted.size();
    lexer_ = RequirementLexer(source_, token_.offset + length);
    token_.text.resize(length);
  }
  if (takeWord("leaf")) {
    out->certificate = kLeaf;
    return true;
  }
  if (takeWord("root") || takeWord("anchor")) {
    out->certificate = kRoot;
    return true;
  }
  const bool negative = takeSign("-");
  const auto number = token_.kind == Kind::kWord ? numberFrom(token_.text) : std::nullopt;
  if (!number || *number < 0) return unexpected("leaf, root or a number");
  out->certificate = negative ? -*number : *number;
  advance();
  return true;
}

bool Parser::ofCertificate(Expression* out) {
  if (takeWord("trusted")) {
    out->op = RequirementOp::kTrustedCertificate;
    return true;
  }
  if (takeEquals()) return certificateHash(out);
  if (takeSign("[")) return certificateField(out);
  return unexpected("\"=\", \"[\" or \"trusted\"");
}

// The hash itself, or a file with the certificate.
bool Parser::certificateHash(Expression* out) {
  out->op = RequirementOp::kAnchorHash;
  if (token_.kind == Kind::kHash) {
    if (token_.text.size() != kHashSize) return failHere("a certificate's hash has 40 digits");
    out->key = token_.text;
    advance();
    return true;
  }
  if (token_.kind != Kind::kPath && token_.kind != Kind::kString) {
    return unexpected("a hash or the path of a certificate");
  }
  std::string der;
  ErrorText reason;
  if (!readFile(token_.text, &der, &reason)) {
    return failHere(fmt::format("{}: {}", token_.text, reason.text()));
  }
  const auto certificate = Certificate::fromDer(der);
  if (!certificate) {
    return failHere(fmt::format("{}: not a DER-encoded certificate", token_.text));
  }
  out->key = certificate->sha1();
  advance();
  return true;
}

bool Parser::certificateField(Expression* out) {
  const RequirementToken named = token_;
  if (!key(&out->key)) return false;
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
    token_ = named;
    return failHere(fmt::format("\"{}\" is no object identifier", identifier));
  }
  return wantSign("]") && match(out);
}

bool Parser::bracketed(RequirementOp op, Expression* out) {
  out->op = op;
  return wantSign("[") && key(&out->key) && wantSign("]") && match(out);
}

bool Parser::cdHash(Expression* out) {
  out->op = RequirementOp::kCdHash;
  takeEquals();
  if (token_.kind != Kind::kHash) return unexpected("a hash, H\"...\"");
  if (token_.text.size() != kHashSize) return failHere("a code directory's hash has 40 digits");
  out->key = token_.text;
  advance();
  return true;
}

bool Parser::platform(Expression* out) {
  out->op = RequirementOp::kPlatform;
  takeEquals();
  const auto number = token_.kind == Kind::kWord ? numberFrom(token_.text) : std::nullopt;
  if (!number || *number < 0) return unexpected("a number");
  out->number = static_cast<uint32_t>(*number);
  advance();
  return true;
}

bool Parser::isString() const {
  return token_.kind == Kind::kWord || token_.kind == Kind::kString || token_.kind == Kind::kData;
}

// In brackets, where no keyword is expected, all words are keys.
bool Parser::key(std::string* out) {
  if (!isString()) return unexpected("a key");
  *out = token_.text;
  advance();
  return true;
}

bool Parser::string(std::string* out) {
  const bool isKeyword = token_.kind == Kind::kWord && isRequirementKeyword(token_.text);
  if (!isString() || isKeyword) return unexpected("a string");
  *out = token_.text;
  advance();
  return true;
}

// Nothing asks for the presence alone.
bool Parser::match(Expression* out) {
  out->match = RequirementMatch::kExists;
  if (takeWord("exists")) return true;
  if (takeWord("absent")) {
    out->match = RequirementMatch::kAbsent;
    return true;
  }
  if (takeEquals()) return equality(out);
  if (takeSign("~")) {
    out->match = RequirementMatch::kContains;
    return string(&out->value);
  }
  for (const Comparison& comparison : kComparisons) {
    if (!takeSign(comparison.sign)) continue;
    if (token_.isWord("timestamp")) return date(comparison.date, out);
    out->match = comparison.text;
    return string(&out->value);
  }
  return true;
}

// An asterisk at an end lets any text stand there.
bool Parser::equality(Expression* out) {
  if (token_.isWord("timestamp")) return date(RequirementMatch::kOn, out);
  const bool openStart = takeSign("*");
  if (!string(&out->value)) return false;
  const bool openEnd = takeSign("*");
  out->match = openStart && openEnd ? RequirementMatch::kContains
               : openStart          ? RequirementMatch::kEndsWith
               : openEnd            ? RequirementMatch::kBeginsWith
                                    : RequirementMatch::kEqual;
  return true;
}

bool Parser::date(RequirementMatch match, Expression* out) {
  advance();
  const auto seconds =
      token_.kind == Kind::kString ? secondsFromDescription(token_.text) : std::nullopt;
  if (!seconds) return unexpected("a date as in \"2011-07-01 00:00:00 +0000\"");
  out->match = match;
  out->date = *seconds - static_cast<int64_t>(kReferenceDateOffset);
  advance();
  return true;
}

}  // namespace

std::optional<RequirementExpression> parseRequirement(std::string_view source, ErrorText* error) {
  RequirementExpression expression;
  if (!Parser(source, error).whole(&expression)) return std::nullopt;
  return expression;
}

std::optional<std::map<uint32_t, std::string>> parseRequirementSet(std::string_view source,
                                                                   ErrorText* error) {
  std::map<uint32_t, std::string> requirements;
  if (!Parser(source, error).set(&requirements)) return std::nullopt;
  return requirements;
}

}  // namespace tovrek::signing
