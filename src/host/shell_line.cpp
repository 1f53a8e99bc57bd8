#include "host/shell_line.h"

namespace tovrek {
namespace {

constexpr std::string_view kBlanks = " \t";
// What no shell gives a meaning to, wherever in a word it stands. "=" is not among it: it makes a
// first word an assignment.
constexpr std::string_view kPlain =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./:,+@%";

// Where the text in quotation marks ends; npos where something in it would be expanded, or no
// second mark follows. Between double ones the shell still expands.
size_t endOfQuoted(std::string_view text, char mark) {
  const size_t end = text.find(mark);
  if (end == text.npos || mark == '\'') return end;
  return text.substr(0, end).find_first_of("$`\\!") == text.npos ? end : text.npos;
}

}  // namespace

std::optional<std::vector<std::string>> plainWords(std::string_view line) {
  std::vector<std::string> words;
  bool inWord = false;
  while (!line.empty()) {
    const char first = line.front();
    line.remove_prefix(1);
    const bool isBlank = kBlanks.find(first) != kBlanks.npos;
    if (!isBlank && !inWord) words.emplace_back();
    inWord = !isBlank;
    if (isBlank) continue;
    if (first == '"' || first == '\'') {
      const size_t end = endOfQuoted(line, first);
      if (end == line.npos) return std::nullopt;
      words.back() += line.substr(0, end);
      line.remove_prefix(end + 1);
    } else if (kPlain.find(first) != kPlain.npos) {
      words.back() += first;
    } else {
      return std::nullopt;
    }
  }
  if (words.empty()) return std::nullopt;
  return words;
}

}  // namespace tovrek
