// A program called without a process of its own.
#pragma once

#include <string>
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

}  // namespace tovrek::test
