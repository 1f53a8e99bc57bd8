#include "batch/json_object.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <set>

#include "host/utf8.h"

namespace tovrek::batch {
namespace {

class ObjectReader {
 public:
  ObjectReader(std::string_view text, ErrorText* error) : text_(text), error_(error) {}

  std::optional<std::vector<JsonMember>> read() {
    std::vector<JsonMember> members;
    std::set<std::string> names;
    if (!isUtf8(text_)) return refuse("it is not UTF-8");
    if (!take('{')) return refuse("it is no JSON object");
    if (take('}')) return atEnd(std::move(members));
    do {
      JsonMember member;
      if (!readText(&member.first)) return refuse("a name in quotation marks was expected");
      if (!take(':')) return refuse("a colon was expected");
      if (!readValue(&member.second))
        return refuse("a text, number, true, false or null was expected");
      if (!names.insert(member.first).second) {
        return refuse(fmt::format("\"{}\" stands there twice", member.first));
      }
      members.push_back(std::move(member));
    } while (take(','));
    if (!take('}')) return refuse("a comma or the end of the object was expected");
    return atEnd(std::move(members));
  }

 private:
  std::optional<std::vector<JsonMember>> refuse(std::string reason) {
    fail(error_, fmt::format("{} (at character {})", reason, at_ + 1));
    return std::nullopt;
  }
  std::optional<std::vector<JsonMember>> atEnd(std::vector<JsonMember> members) {
    skipBlanks();
    if (at_ != text_.size()) return refuse("something follows the object");
    return members;
  }

  void skipBlanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

  bool take(char c) {
    skipBlanks();
    if (at_ == text_.size() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  bool readText(std::string* text) {
    if (!take('"')) return false;
    for (; at_ < text_.size(); ++at_) {
      const char c = text_[at_];
      if (c == '"') return ++at_, true;
      if (static_cast<unsigned char>(c) < 0x20) return false;
      if (c != '\\') {
        text->push_back(c);
      } else if (!readEscape(text)) {
        return false;
      }
    }
    return false;
  }

  // Leaves `at_` on the last character of the escape.
  bool readEscape(std::string* text) {
    constexpr std::string_view kNames = "\"\\/bfnrt";
    constexpr std::string_view kMeant = "\"\\/\b\f\n\r\t";
    if (++at_ >= text_.size()) return false;
    if (text_[at_] == 'u') return readCodePoint(text);
    const size_t which = kNames.find(text_[at_]);
    if (which == kNames.npos) return false;
    text->push_back(kMeant[which]);
    return true;
  }

  bool readCodePoint(std::string* text) {
    uint32_t point = 0, low = 0;
    if (!readUnit(&point)) return false;
    const bool isHigh = point >= 0xd800 && point < 0xdc00;
    if (isHigh) {
      if (text_.substr(at_ + 1, 2) != "\\u") return false;
      at_ += 2;
      if (!readUnit(&low) || low < 0xdc00 || low > 0xdfff) return false;
      point = 0x10000 + ((point - 0xd800) << 10) + (low - 0xdc00);
    } else if (point >= 0xdc00 && point < 0xe000) {
      return false;
    }
    appendUtf8(text, point);
    return true;
  }

  bool readUnit(uint32_t* unit) {
    constexpr size_t kDigits = 4;
    const std::string_view digits = text_.substr(std::min(at_ + 1, text_.size()), kDigits);
    const char* end = digits.data() + digits.size();
    if (digits.size() != kDigits || std::from_chars(digits.data(), end, *unit, 16).ptr != end) {
      return false;
    }
    at_ += kDigits;
    return true;
  }

  bool readValue(std::optional<std::string>* value) {
    skipBlanks();
    if (text_.substr(at_).starts_with('"')) return readText(&value->emplace());
    const size_t end = std::min(text_.find_first_of(",} \t\r\n", at_), text_.size());
    const std::string_view word = text_.substr(at_, end - at_);
    if (word == "null") {
      value->reset();
    } else if (word == "true" || word == "false" || isNumber(word)) {
      value->emplace(word);
    } else {
      return false;
    }
    at_ = end;
    return true;
  }

  static bool isNumber(std::string_view word) {
    if (word.empty() || word == "-" || !(word[0] == '-' || (word[0] >= '0' && word[0] <= '9'))) {
      return false;
    }
    double value = 0;
    const char* end = word.data() + word.size();
    const auto parsed = std::from_chars(word.data(), end, value);
    return parsed.ptr == end;
  }

  std::string_view text_;
  ErrorText* error_;
  size_t at_ = 0;
};

}  // namespace

std::optional<std::vector<JsonMember>> readJsonObject(std::string_view text, ErrorText* error) {
  return ObjectReader(text, error).read();
}

std::string memberText(const std::vector<JsonMember>& members, std::string_view name) {
  const auto found = std::ranges::find(members, name, &JsonMember::first);
  return found == members.end() ? "" : found->second.value_or("");
}

}  // namespace tovrek::batch
