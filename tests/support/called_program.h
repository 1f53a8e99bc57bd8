// A program called without a process of its own.
#pragma once

#include <gmock/gmock.h>

#include <string>
#include <utility>
#include <vector>

#include "host/process.h"
#include "host/program.h"

namespace tovrek::test {

// What the program answers and prints. For programs that take their output from their streams
// alone and start from no state that an earlier call in this process may have left.
inline Outcome called(ProgramRun run, std::vector<std::string> words,
                      const std::string& program = "program") {
  Outcome outcome;
  const Streams streams{[&](std::string_view text) { outcome.output += text; },
                        [&](std::string_view text) { outcome.errorOutput += text; }};
  outcome.status = run({program, std::move(words)}, streams);
  return outcome;
}

// How a program is to answer: by its status, and with what each of its two outputs begins. An empty
// beginning means that nothing is printed there.
struct Answer {
  std::vector<std::string> words;
  int status;
  std::string output, errorOutput;
};
inline void expectAnswers(ProgramRun run, const std::vector<Answer>& answers) {
  for (const Answer& each : answers) {
    SCOPED_TRACE(testing::PrintToString(each.words));
    const Outcome outcome = called(run, each.words);
    EXPECT_EQ(outcome.status, each.status);
    for (const auto& [printed, start] : {std::pair(outcome.output, each.output),
                                         std::pair(outcome.errorOutput, each.errorOutput)}) {
      EXPECT_EQ(printed.empty(), start.empty()) << printed;
      EXPECT_THAT(printed, testing::StartsWith(start));
    }
  }
}

}  // namespace tovrek::test
