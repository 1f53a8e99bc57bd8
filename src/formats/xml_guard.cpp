#include "formats/xml_guard.h"

#include <algorithm>

namespace tovrek {
namespace {

// Bytes: of one entity, which may stand for an element; of all declarations of attributes, which
// every element may have.
constexpr size_t kLongestEntity = 2048;
constexpr size_t kLongestAttributeLists = 2048;

// Goes from one piece of markup to the next.
class MarkupScan {
 public:
  MarkupScan(std::string_view document, uint64_t mostAttributes)
      : document_(document), mostAttributes_(mostAttributes) {}

  std::string fault() {
    const char* reason = nullptr;
    while (reason == nullptr && (at_ = document_.find('<', at_)) < document_.size()) {
      start_ = at_;
      reason = next();
    }
    if (reason == nullptr) return "";
    const auto line =
        std::count(document_.begin(), document_.begin() + static_cast<long>(start_), '\n');
    return "line " + std::to_string(line + 1) + ": " + reason;
  }

 private:
  bool isAt(std::string_view mark) const { return document_.substr(at_).starts_with(mark); }

  // Moves behind markup of this form, when it is one.
  bool skips(std::string_view opening, std::string_view closing) {
    if (!isAt(opening)) return false;
    const size_t end = document_.find(closing, at_ + opening.size());
    at_ = end == document_.npos ? document_.size() : end + closing.size();
    return true;
  }

  // One piece of markup; the reason to refuse it, or none.
  const char* next() {
    if (skips("<!--", "-->") || skips("<![CDATA[", "]]>") || skips("<?", "?>")) return nullptr;
    if (isAt("<!ENTITY")) {
      toEnd(">", Quoted::kAnything);
      return at_ - start_ > kLongestEntity ? "an entity is too long" : nullptr;
    }
    if (isAt("<!")) {
      const bool isList = isAt("<!ATTLIST");
      const bool isType = isAt("<!DOCTYPE");
      // A reader that disagrees about where a literal ends would see other markup than we do.
      if (toEnd(isType ? "[>" : ">", Quoted::kNoMarkup).holdsMarkup)
        return "a declaration holds markup";
      if (isList) attributeLists_ += at_ - start_;
      return attributeLists_ > kLongestAttributeLists ? "too many attributes are declared"
                                                      : nullptr;
    }
    const bool tooMany = toEnd(">", Quoted::kNoMarkup).equalities > mostAttributes_;
    return tooMany ? "an element has too many attributes" : nullptr;
  }

  enum class Quoted { kAnything, kNoMarkup };
  struct Passed {
    size_t equalities = 0;  // signs outside of quotation marks
    bool holdsMarkup = false;
  };
  // Moves behind what ends the markup, or to a "<" that must not stand in it.
  Passed toEnd(std::string_view ends, Quoted quoted) {
    Passed passed;
    char quote = 0;
    for (++at_; at_ < document_.size(); ++at_) {
      const char c = document_[at_];
      passed.holdsMarkup = c == '<' && (quote == 0 || quoted == Quoted::kNoMarkup);
      if (passed.holdsMarkup) break;
      if (quote != 0) {
        if (c == quote) quote = 0;
      } else if (c == '"' || c == '\'') {
        quote = c;
      } else if (ends.find(c) != ends.npos) {
        ++at_;
        break;
      } else if (c == '=') {
        ++passed.equalities;
      }
    }
    return passed;
  }

  const std::string_view document_;
  const uint64_t mostAttributes_;
  size_t at_ = 0;
  size_t start_ = 0;           // of the markup at hand
  size_t attributeLists_ = 0;  // bytes of declarations so far
};

}  // namespace

std::string markupFault(std::string_view document, const Limits& limits) {
  if (document.find('\0') == document.npos) {
    return MarkupScan(document, limits.xmlAttributes).fault();
  }
  std::string narrow(document);
  std::erase(narrow, '\0');
  return MarkupScan(narrow, limits.xmlAttributes).fault();
}

}  // namespace tovrek
