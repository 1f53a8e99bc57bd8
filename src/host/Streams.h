// Where a program's output goes.
#pragma once

#include <functional>
#include <string_view>

namespace tovrek {

// Prints to standard output, at once.
void printOut(std::string_view text);
// Whether something that was printed did not reach standard output.
bool outputFailed();
// Prints to standard error, at once and behind what went to standard output before.
void printError(std::string_view text);

// The two streams that a program prints to: those of the process, or a test's.
struct Streams {
  std::function<void(std::string_view)> out = printOut;
  std::function<void(std::string_view)> error = printError;
};

}  // namespace tovrek
