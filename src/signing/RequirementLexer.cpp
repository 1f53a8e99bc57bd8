#include "signing/RequirementLexer.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "formats/hex.h"

namespace tovrek::signing {
namespace {

using Kind = RequirementToken::Kind;

constexpr std::string_view kKeywords[] = {
    "guest",   "host",        "designated", "library", "plugin",    "or",
    "and",     "not",         "always",     "true",    "never",     "false",
    "cdhash",  "platform",    "notarized",  "legacy",  "anchor",    "apple",
    "generic", "certificate", "cert",       "trusted", "info",      "entitlement",
    "exists",  "absent",      "leaf",       "root",    "timestamp", "identifier"};

// Longer signs before the shorter ones that they begin with.
constexpr std::string_view kSigns[] = {"==", "=>", "<=", ">=", "(", ")", "[", "]",
                                       "=",  "!",  "<",  ">",  "*", "~", "-", ";"};

bool isBlank(char c) {
  return std::isspace(static_cast<unsigned char>(c)) != 0;
}
bool isWordCharacter(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '.';
}
bool isPathCharacter(char c) {
  return !isBlank(c) && c != ')' && c != ';';
}

}  // namespace

bool isRequirementKeyword(std::string_view word) {
  return std::find(std::begin(kKeywords), std::end(kKeywords), word) != std::end(kKeywords);
}

std::string_view RequirementLexer::takeWhile(bool (*wanted)(char)) {
  const size_t start = at_;
  while (at_ < source_.size() && wanted(source_[at_])) ++at_;
  return source_.substr(start, at_ - start);
}

// False for a comment without an end.
bool RequirementLexer::skipBlanks() {
  for (;;) {
    takeWhile(isBlank);
    const std::string_view rest = source_.substr(at_);
    if (rest.starts_with("#") || rest.starts_with("//")) {
      at_ = std::min(source_.find('\n', at_), source_.size());
    } else if (rest.starts_with("/*")) {
      const size_t end = source_.find("*/", at_ + 2);
      if (end == std::string_view::npos) return false;
      at_ = end + 2;
    } else {
      return true;
    }
  }
}

// The quote is the current character. A backslash takes away the meaning of what follows it.
RequirementToken RequirementLexer::quoted(Kind kind) {
  std::string text;
  for (++at_; at_ < source_.size(); ++at_) {
    char c = source_[at_];
    if (c == '"') {
      ++at_;
      return {kind, std::move(text)};
    }
    if (c == '\\') {
      if (++at_ == source_.size()) break;
      c = source_[at_];
    }
    text += c;
  }
  return {Kind::kBad, "the quotes have no end"};
}

RequirementToken RequirementLexer::sign() {
  for (const std::string_view sign : kSigns) {
    if (!source_.substr(at_).starts_with(sign)) continue;
    at_ += sign.size();
    return {Kind::kSign, std::string(sign)};
  }
  const char c = source_[at_++];
  const bool printable = std::isprint(static_cast<unsigned char>(c)) != 0;
  return {Kind::kBad, printable ? fmt::format("'{}' means nothing here", c)
                                : "a character that means nothing here"};
}

RequirementToken RequirementLexer::next() {
  const size_t before = at_;
  if (!skipBlanks()) return {Kind::kBad, "the comment has no end", before};
  const size_t start = at_;
  const std::string_view rest = source_.substr(at_);
  RequirementToken token;
  if (rest.starts_with("\"")) {
    token = quoted(Kind::kString);
  } else if (rest.starts_with("H\"")) {
    ++at_;
    token = quoted(Kind::kHash);
    const auto bytes = bytesFromHex(token.text);
    if (token.kind == Kind::kHash && !bytes) token = {Kind::kBad, "a hash has hexadecimal digits"};
    if (token.kind == Kind::kHash) token.text = *bytes;
  } else if (rest.starts_with("/")) {
    token = {Kind::kPath, std::string(takeWhile(isPathCharacter))};
  } else if (!rest.empty() && isWordCharacter(rest[0])) {
    token = {Kind::kWord, std::string(takeWhile(isWordCharacter))};
    if (token.text.starts_with("0x")) {
      const auto bytes = bytesFromHex(std::string_view(token.text).substr(2));
      token = bytes ? RequirementToken{Kind::kData, *bytes}
                    : RequirementToken{Kind::kBad, "0x wants an even number of hexadecimal digits"};
    }
  } else if (!rest.empty()) {
    token = sign();
  }
  token.offset = start;
  return token;
}

std::string positionText(std::string_view source, size_t offset) {
  const std::string_view before = source.substr(0, offset);
  const auto line = std::count(before.begin(), before.end(), '\n') + 1;
  const size_t lineStart = before.rfind('\n');  // npos + 1 is 0
  return fmt::format("line {}, column {}", line, offset - (lineStart + 1) + 1);
}

}  // namespace tovrek::signing
