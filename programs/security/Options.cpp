#include "programs/security/Options.h"

namespace tovrek::security {

std::optional<Options> Options::parse(const std::vector<std::string>& arguments,
                                      std::string_view letters) {
  Options result;
  for (size_t i = 0; i < arguments.size(); ++i) {
    const std::string& word = arguments[i];
    if (word == "--") {
      result.operands_.insert(result.operands_.end(), arguments.begin() + i + 1, arguments.end());
      break;
    }
    if (word.size() < 2 || word.front() != '-') {
      result.operands_.push_back(word);
      continue;
    }
    for (size_t at = 1; at < word.size(); ++at) {
      const char letter = word[at];
      const size_t known = letters.find(letter);
      if (letter == ':' || known == std::string_view::npos) return std::nullopt;
      const bool takesValue = known + 1 < letters.size() && letters[known + 1] == ':';
      if (!takesValue) {
        result.values_[letter] = "";
        continue;
      }
      if (at + 1 < word.size()) {
        result.values_[letter] = word.substr(at + 1);
      } else if (i + 1 < arguments.size()) {
        result.values_[letter] = arguments[++i];
      } else {
        return std::nullopt;
      }
      break;
    }
  }
  return result;
}

std::optional<std::string> Options::value(char letter) const {
  const auto found = values_.find(letter);
  return found == values_.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace tovrek::security
