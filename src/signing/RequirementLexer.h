// Words and signs of the requirement language.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tovrek::signing {

struct RequirementToken {
  enum class Kind {
    kWord,    // letters, digits and periods
    kString,  // in quotes; `text` is what they mean
    kData,    // 0x..., `text` being the bytes
    kHash,    // H"...", `text` being the bytes
    kPath,    // begins with a slash
    kSign,    // one of ( ) [ ] = == => ! < > <= >= * ~ - ;
    kEnd,
    kBad,  // `text` says what is wrong
  };
  Kind kind = Kind::kEnd;
  std::string text;
  size_t offset = 0;  // in the source

  bool is(Kind wanted, std::string_view wantedText) const {
    return kind == wanted && text == wantedText;
  }
  bool isWord(std::string_view wanted) const { return is(Kind::kWord, wanted); }
  bool isSign(std::string_view wanted) const { return is(Kind::kSign, wanted); }
};

// Whether the language gives that word a meaning of its own, so that a string of it needs quotes.
bool isRequirementKeyword(std::string_view word);

// Hands out one token after the other. Blanks and comments (# and // to the end of the line,
// /* ... */) are passed over.
class RequirementLexer {
 public:
  explicit RequirementLexer(std::string_view source, size_t at = 0) : source_(source), at_(at) {}
  RequirementToken next();

 private:
  bool skipBlanks();
  RequirementToken quoted(RequirementToken::Kind kind);
  RequirementToken sign();
  std::string_view takeWhile(bool (*wanted)(char));

  std::string_view source_;
  size_t at_ = 0;
};

// "line 1, column 17" of an offset into the source.
std::string positionText(std::string_view source, size_t offset);

}  // namespace tovrek::signing
