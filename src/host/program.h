// The shape of a program. Each is a function of its arguments and streams in a namespace of its
// own, so that it can be called without a process, and a `main` that hands it to runProgram().
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/Streams.h"
#include "host/last_resort.h"

namespace tovrek {

// A command line.
struct Arguments {
  std::string program{};             // the name that it was called by; empty when it got none
  std::vector<std::string> words{};  // what follows the name
  bool ownsProcess = false;          // nothing but this run depends on what the process may do
};

// Runs a program; answers its exit status.
using ProgramRun = int (*)(const Arguments& arguments, const Streams& streams);

// What differs between one `main` and another.
struct ProgramRules {
  // What `--version`, alone on the command line, is answered by; null where the program itself
  // says.
  const char* name = nullptr;
  // It allocates and frees large buffers again and again (see memory.h).
  bool keepsFreedMemory = false;
  // An interruption ends the child too and removes what the program has begun (see signals.h).
  bool cleansUpOnSignals = false;
  // Tells of an exception that nobody caught and answers the status to end with. `reason` is null
  // where the exception has no text. Without this function the exception ends the process.
  int (*onUncaught)(const char* reason, const Streams& streams) = nullptr;
  // The end of a program that gets no memory, wherever it happens.
  LastWords outOfMemory{};
};

// "NAME (Tovrek) VERSION" and a line end, as all programs tell their version.
std::string versionLine(std::string_view name);

// The whole of `main`: the program on the streams of this process. Those that it was started
// without are /dev/null, and the limit on the size of files ends no program: writing fails.
int runProgram(int argc, char** argv, ProgramRun run, const ProgramRules& rules = {});

}  // namespace tovrek
