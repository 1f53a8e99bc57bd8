#include "host/program.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <exception>
#include <new>

#include "host/allocation.h"
#include "host/confinement.h"
#include "host/memory.h"
#include "host/platform.h"
#include "host/signals.h"
#include "host/version.h"

namespace tovrek {
namespace {

// As sysexits.h numbers a failure of the system.
constexpr int kNoStreams = 71;

Arguments argumentsOf(int argc, char** argv) {
  Arguments arguments;
  if (argc < 1) return arguments;
  arguments.program = argv[0];
  arguments.words.assign(argv + 1, argv + argc);
  return arguments;
}

// The first files that a program opens would take the numbers of streams that it was started
// without, and its messages would end up in them.
bool openClosedStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (::fcntl(stream, F_GETFD) != -1 || errno != EBADF) continue;
    // The lowest free number is this one. Children are to have it as well.
    const int mode = stream == STDIN_FILENO ? O_RDONLY : O_WRONLY;
    if (::open("/dev/null", mode) != stream) return false;  // NOLINT(android-cloexec-open)
  }
  return true;
}

int tellVersion(const char* name, const Streams& streams) {
  streams.out(versionLine(name));
  return outputFailed() ? EXIT_FAILURE : EXIT_SUCCESS;
}

}  // namespace

std::string versionLine(std::string_view name) {
  return std::string(name) + " (Tovrek) " + kToolVersion + "\n";
}

int runProgram(int argc, char** argv, ProgramRun run, const ProgramRules& rules) {
  watchAllocations(rules.outOfMemory);
  if (rules.keepsFreedMemory) keepFreedMemory();
  // Nobody could be told.
  if (!openClosedStreams()) return kNoStreams;
  // A file that may not grow further is an error to report, as a full disk is.
  ::signal(SIGXFSZ, SIG_IGN);
  forbidCoreDumps();
  // What the caller has open is none of the business of the programs that this one starts.
  keepFromChildren(STDERR_FILENO + 1);
  // Where the parent ignores the ends of children, so would this program: the system then keeps
  // no exit status of theirs.
  ::signal(SIGCHLD, SIG_DFL);
  if (rules.cleansUpOnSignals) installSignalHandlers();
  const Streams streams;
  Arguments arguments = argumentsOf(argc, argv);
  arguments.ownsProcess = true;
  if (rules.name != nullptr && arguments.words == std::vector<std::string>{"--version"}) {
    return tellVersion(rules.name, streams);
  }
  try {
    return run(arguments, streams);
  } catch (const std::bad_alloc&) {
    // What the exception kept from being removed is removed with the rest.
    endWithoutMemory();
  } catch (const std::exception& failure) {
    if (rules.onUncaught == nullptr) throw;
    removeRegisteredItems();
    return rules.onUncaught(failure.what(), streams);
  } catch (...) {
    if (rules.onUncaught == nullptr) throw;
    removeRegisteredItems();
    return rules.onUncaught(nullptr, streams);
  }
}

}  // namespace tovrek
