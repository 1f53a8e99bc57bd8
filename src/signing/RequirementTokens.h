// The tokens of a requirement as a parser takes them, and the errors that tell where it stands.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "signing/RequirementLexer.h"

namespace tovrek::signing {

// One token ahead. What is "wanted" answers false after it has put the error into the slot; what is
// "taken" is passed over where it is there.
class RequirementTokens {
 public:
  RequirementTokens(std::string_view source, ErrorText* error)
      : source_(source), error_(error), lexer_(source), token_(lexer_.next()) {}

  const RequirementToken& token() const { return token_; }
  void advance() { token_ = lexer_.next(); }
  bool atEnd() const { return token_.kind == RequirementToken::Kind::kEnd; }

  bool takeWord(std::string_view word) { return take(token_.isWord(word)); }
  bool takeSign(std::string_view sign) { return take(token_.isSign(sign)); }
  bool takeEquals() { return takeSign("=") || takeSign("=="); }
  void skipSemicolons() {
    while (takeSign(";")) {
    }
  }
  // The text of the current token, which is passed over.
  std::string takeText();
  // What is printed for a trusted certificate has no blank behind the slot: cuts a word that ends
  // in `ending` in two.
  void splitWord(std::string_view ending);

  bool wantSign(std::string_view sign);
  // A word that is no keyword, a text in quotes, or bytes.
  bool wantString(std::string* out);
  // In brackets, where no keyword is expected, all words are keys.
  bool wantKey(std::string* out);
  // A hash of `size` bytes; `wrongSize` is said of any other.
  bool wantHash(size_t size, std::string_view wrongSize, std::string* out);
  // Digits alone; `wanted` is what is said for anything else.
  bool wantNumber(std::string_view wanted, int32_t* out);

  bool isString() const;
  bool isKeyword() const;

  // False, with "invalid requirement: line L, column C: TEXT" for the current token.
  bool failHere(std::string_view text) { return failAt(token_, text); }
  bool failAt(const RequirementToken& token, std::string_view text);
  bool unexpected(std::string_view wanted);

 private:
  bool take(bool matches) {
    if (matches) advance();
    return matches;
  }

  std::string_view source_;
  ErrorText* error_;
  RequirementLexer lexer_;
  RequirementToken token_;
};

}  // namespace tovrek::signing
