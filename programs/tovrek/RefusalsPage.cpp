#include "programs/tovrek/RefusalsPage.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "host/paths.h"

namespace tovrek {
namespace {

// "| a | b |" as "a" and "b"; none for other lines.
std::vector<std::string> cellsOf(std::string_view line) {
  std::vector<std::string> cells;
  if (!line.starts_with('|')) return cells;
  line.remove_prefix(1);
  while (line.find('|') != std::string_view::npos) {
    const size_t end = line.find('|');
    cells.push_back(trimmed(line.substr(0, end)));
    line.remove_prefix(end + 1);
  }
  return cells;
}

// Whether `text` has the pieces of the pattern in their order, from its first to its last byte.
bool matches(std::string_view pattern, std::string_view text) {
  constexpr std::string_view kAnything = "...";
  size_t end = pattern.find(kAnything);
  if (end == std::string_view::npos) return pattern == text;
  if (!text.starts_with(pattern.substr(0, end))) return false;
  text.remove_prefix(end);
  for (;;) {
    pattern.remove_prefix(end + kAnything.size());
    end = pattern.find(kAnything);
    if (end == std::string_view::npos) return text.ends_with(pattern);
    const size_t at = text.find(pattern.substr(0, end));
    if (at == std::string_view::npos) return false;
    text.remove_prefix(at + end);
  }
}

std::string between(std::string_view text, std::string_view before, std::string_view behind) {
  const size_t start = text.find(before);
  if (start == std::string_view::npos) return "";
  const size_t end = text.find(behind, start + before.size());
  if (end == std::string_view::npos) return "";
  return std::string(text.substr(start + before.size(), end - start - before.size()));
}

// Without the marks of the page's format: links keep their words.
std::string plain(std::string text) {
  for (size_t at = text.find("]("); at != std::string::npos; at = text.find("](", at)) {
    const size_t end = text.find(')', at);
    text.erase(at, end == std::string::npos ? end : end + 1 - at);
    if (const size_t open = text.rfind('[', at); open != std::string::npos) text.erase(open, 1);
  }
  std::erase_if(text, [](char c) { return c == '`' || c == '*'; });
  return text;
}

}  // namespace

RefusalsPage::RefusalsPage(std::string_view page) {
  std::vector<std::string> head;
  std::string answer;  // the one that the lines belong to
  while (!page.empty()) {
    const std::string_view line = page.substr(0, page.find('\n'));
    page.remove_prefix(std::min(page.size(), line.size() + 1));
    const std::vector<std::string> cells = cellsOf(line);
    if (cells.empty()) head.clear();
    if (!cells.empty() && head.empty()) {
      head = cells;
    } else if (!cells.empty()) {
      take(head, cells);
    }
    if (line.starts_with("- **")) {
      answer = between(line, "**", "**");
      answers_[answer] = trimmed(line.substr(line.find(':') + 1));
    } else if (!answer.empty() && line.starts_with("  ")) {
      answers_[answer] += " " + trimmed(line);
    } else {
      answer.clear();
    }
  }
  for (auto& [word, words] : answers_) words = plain(words.substr(0, words.find(". ")));
}

void RefusalsPage::take(const std::vector<std::string>& head,
                        const std::vector<std::string>& cells) {
  Row row;
  for (size_t i = 1; i < std::min(head.size(), cells.size()); ++i) {
    if (head[i] == "what to do") {
      row.advice = cells[i];
    } else {
      row.meaning += (row.meaning.empty() ? "" : ": ") + cells[i];
    }
  }
  if (head.front() == "code") {
    std::string_view list = cells.front();
    while (!list.empty()) {
      int32_t code = 0;
      const auto result = std::from_chars(list.data(), list.data() + list.size(), code);
      if (result.ec != std::errc()) return;
      codes_[code] = row;
      list.remove_prefix(static_cast<size_t>(result.ptr - list.data()));
      list.remove_prefix(std::min(list.find_first_not_of(", "), list.size()));
    }
    return;
  }
  row.cause = between(cells.front(), "*(", ")*");
  // Several texts may share a row.
  std::string_view rest = cells.front();
  while (rest.find('`') != std::string_view::npos) {
    row.text = between(rest, "`", "`");
    rows_.push_back(row);
    rest.remove_prefix(std::min(rest.size(), rest.find('`') + row.text.size() + 2));
  }
}

std::string RefusalsPage::line(const Row& row) const {
  std::string advice = row.advice.empty() ? "*rebuild*" : row.advice;
  for (const auto& [word, words] : answers_) {
    const std::string mark = "*" + word + "*";
    const size_t at = advice.find(mark);
    if (at != std::string::npos) advice.replace(at, mark.size(), word + " (" + words + ")");
  }
  return fmt::format("{}. What to do: {}.", plain(row.meaning), plain(advice));
}

std::string RefusalsPage::explain(std::string_view text, std::string_view cause) const {
  const Row* general = nullptr;
  for (const Row& row : rows_) {
    if (!matches(row.text, text) && !matches(row.text, trimmed(text))) continue;
    if (!cause.empty() && row.cause == cause) return line(row);
    if (general == nullptr && row.cause.empty()) general = &row;
  }
  return general == nullptr ? "" : line(*general);
}

std::string RefusalsPage::explain(int32_t code) const {
  const auto found = codes_.find(code);
  return found == codes_.end() ? "" : line(found->second);
}

}  // namespace tovrek
