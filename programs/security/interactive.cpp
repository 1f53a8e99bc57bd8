#include "programs/security/interactive.h"

#include <iostream>

#include "host/terminal.h"
#include "programs/security/status.h"

namespace tovrek::security {

std::optional<Words> wordsOf(std::string_view line) {
  Words words;
  std::string word;
  bool inWord = false;
  char quote = '\0';
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '\\' && quote != '\'' && i + 1 < line.size()) {
      word += line[++i];
      inWord = true;
    } else if (quote != '\0') {
      if (c == quote) {
        quote = '\0';
      } else {
        word += c;
      }
    } else if (c == '"' || c == '\'') {
      quote = c;
      inWord = true;
    } else if (c == ' ' || c == '\t' || c == '\r') {
      if (inWord) words.push_back(std::move(word));
      word.clear();
      inWord = false;
    } else {
      word += c;
      inWord = true;
    }
  }
  if (quote != '\0') return std::nullopt;
  if (inWord) words.push_back(std::move(word));
  return words;
}

int runLines(const std::string& prompt, Command run, const Streams& streams) {
  const bool typed = inputIsTyped();
  int status = kSuccess;
  for (std::string line;;) {
    if (typed) streams.out(prompt);
    if (!std::getline(std::cin, line)) return status;
    const auto words = wordsOf(line);
    if (!words) {
      status = reportFailure("a quote is not closed", streams);
      continue;
    }
    if (words->empty() || words->front().starts_with("#")) continue;
    if (words->front() == "quit" || words->front() == "exit") return status;
    status = run(*words, streams);
  }
}

}  // namespace tovrek::security
