#include "signing/RequirementTokens.h"

#include <fmt/format.h>

#include <charconv>

namespace tovrek::signing {
namespace {

using Kind = RequirementToken::Kind;

std::optional<int32_t> numberFrom(const std::string& text) {
  int32_t value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, value);
  if (code != std::errc() || stop != end) return std::nullopt;
  return value;
}

}  // namespace

bool RequirementTokens::failAt(const RequirementToken& token, std::string_view text) {
  return fail(error_, fmt::format("invalid requirement: {}: {}",
                                  positionText(source_, token.offset), text));
}

bool RequirementTokens::unexpected(std::string_view wanted) {
  if (token_.kind == Kind::kBad) return failHere(token_.text);
  if (atEnd()) return failHere(fmt::format("expected {}, found the end", wanted));
  const size_t start = token_.offset;
  RequirementLexer again(source_.substr(start));
  again.next();
  const RequirementToken following = again.next();
  std::string_view found = source_.substr(start, following.offset);
  found = found.substr(0, found.find_last_not_of(" \t\r\n") + 1);
  return failHere(fmt::format("expected {}, found {}", wanted, found));
}

std::string RequirementTokens::takeText() {
  std::string text = std::move(token_.text);
  advance();
  return text;
}

void RequirementTokens::splitWord(std::string_view ending) {
  if (token_.kind != Kind::kWord || token_.text.size() <= ending.size() ||
      !token_.text.ends_with(ending)) {
    return;
  }
  const size_t length = token_.text.size() - ending.size();
  lexer_ = RequirementLexer(source_, token_.offset + length);
  token_.text.resize(length);
}

bool RequirementTokens::isString() const {
  return token_.kind == Kind::kWord || token_.kind == Kind::kString || token_.kind == Kind::kData;
}

bool RequirementTokens::isKeyword() const {
  return token_.kind == Kind::kWord && isRequirementKeyword(token_.text);
}

bool RequirementTokens::wantSign(std::string_view sign) {
  return takeSign(sign) || unexpected(fmt::format("\"{}\"", sign));
}

bool RequirementTokens::wantString(std::string* out) {
  if (!isString() || isKeyword()) return unexpected("a string");
  *out = takeText();
  return true;
}

bool RequirementTokens::wantKey(std::string* out) {
  if (!isString()) return unexpected("a key");
  *out = takeText();
  return true;
}

bool RequirementTokens::wantHash(size_t size, std::string_view wrongSize, std::string* out) {
  if (token_.kind != Kind::kHash) return unexpected("a hash, H\"...\"");
  if (token_.text.size() != size) return failHere(wrongSize);
  *out = takeText();
  return true;
}

bool RequirementTokens::wantNumber(std::string_view wanted, int32_t* out) {
  const auto number = token_.kind == Kind::kWord ? numberFrom(token_.text) : std::nullopt;
  if (!number || *number < 0) return unexpected(wanted);
  *out = *number;
  advance();
  return true;
}

}  // namespace tovrek::signing
