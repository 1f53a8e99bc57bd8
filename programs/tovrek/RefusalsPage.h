// The page that explains refusals, docs/refusals.md, as the program reads it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrek {

// The page itself.
std::string_view refusalsPageText();

// The rows of the page's tables. A row is for a text, in which "..." stands for anything, or for
// codes of the engine; one that says "(cause)" behind its text is for that cause alone.
class RefusalsPage {
 public:
  explicit RefusalsPage(std::string_view page);

  // One line: what is the matter ". What to do: " what helps. Of the rows for the text the first
  // one of that cause, else the first one without any; empty when there is none.
  std::string explain(std::string_view text, std::string_view cause) const;
  // The same for a code of the engine.
  std::string explain(int32_t code) const;

 private:
  struct Row {
    std::string text;
    std::string cause;
    std::string meaning;
    std::string advice;
  };
  void take(const std::vector<std::string>& head, const std::vector<std::string>& cells);
  std::string line(const Row& row) const;

  std::vector<Row> rows_;
  std::map<int32_t, Row> codes_;
  // Words that stand in the tables for a longer answer: "rebuild" and so on.
  std::map<std::string, std::string> answers_;
};

}  // namespace tovrek
