#include "host/program.h"

#include <exception>

#include "host/signals.h"

namespace tovrek {
namespace {

Arguments argumentsOf(int argc, char** argv) {
  Arguments arguments;
  if (argc < 1) return arguments;
  arguments.program = argv[0];
  arguments.words.assign(argv + 1, argv + argc);
  return arguments;
}

}  // namespace

int runProgram(int argc, char** argv, ProgramRun run, const ProgramRules& rules) {
  if (rules.cleansUpOnSignals) installSignalHandlers();
  const Streams streams;
  if (rules.onUncaught == nullptr) return run(argumentsOf(argc, argv), streams);
  try {
    return run(argumentsOf(argc, argv), streams);
  } catch (const std::exception& failure) {
    return rules.onUncaught(failure.what(), streams);
  } catch (...) {
    return rules.onUncaught(nullptr, streams);
  }
}

}  // namespace tovrek
