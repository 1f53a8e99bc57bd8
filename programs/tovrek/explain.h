// What a refusal or a warning is about, for the person at the terminal.
#pragma once

#include <optional>
#include <string>

#include "context/RunContext.h"
#include "converter/Request.h"
#include "host/ErrorText.h"
#include "host/Streams.h"

namespace tovrek {

// What is known of the run when it is refused.
struct Situation {
  std::string text{};                // what it was refused with
  std::string said{};                // by the program that failed, if it was one
  const Request* request = nullptr;  // once the arguments have been understood
  const RunContext* context = nullptr;
  std::optional<std::string> certificate{};  // as it was given
  std::string appPath{};                     // of the unpacked app
};

// Prints one line about the refusal when standard error is a terminal, and nothing otherwise.
void explain(const Situation& situation, const Streams& streams);

// Has the end of a run that gets no memory, which comes without warning, explain itself as well.
void explainLackOfMemory();

// The same for a run that succeeded: one line for each warning in the slot.
void explainWarnings(const ErrorText& warnings, const Streams& streams);

}  // namespace tovrek
