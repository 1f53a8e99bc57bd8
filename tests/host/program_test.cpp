#include "host/program.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace tovrek {
namespace {

std::string given;

int takeDown(const Arguments& arguments, const Streams&) {
  given = arguments.program;
  for (const std::string& word : arguments.words) given += "|" + word;
  if (given.ends_with("text")) throw std::runtime_error("because");
  if (given.ends_with("none")) throw 1;
  return 7;
}

int lastResort(const char* reason, const Streams&) {
  given = reason == nullptr ? "unknown" : reason;
  return 9;
}

TEST(Program, TakesTheCommandLineApartAndAnswersForExceptions) {
  const struct {
    std::vector<std::string> line;
    int status;
    std::string given;
  } cases[] = {
      {{"a/name", "x", ""}, 7, "a/name|x|"},
      {{"name"}, 7, "name"},
      {{}, 7, ""},
      {{"name", "text"}, 9, "because"},
      {{"name", "none"}, 9, "unknown"},
  };
  for (auto c : cases) {
    std::vector<char*> words;
    for (std::string& word : c.line) words.push_back(word.data());
    words.push_back(nullptr);
    const int status = runProgram(static_cast<int>(c.line.size()), words.data(), takeDown,
                                  {.onUncaught = lastResort});
    EXPECT_EQ(status, c.status) << c.given;
    EXPECT_EQ(given, c.given);
  }
}

}  // namespace
}  // namespace tovrek
