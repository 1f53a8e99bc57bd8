#include "host/last_resort.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <new>

#include "host/signals.h"
#include "host/terminal.h"

namespace tovrek {
namespace {

constinit LastWords lastWords;
constinit std::atomic_flag ending = ATOMIC_FLAG_INIT;
std::terminate_handler furtherHandler = nullptr;

// An exception that left a helper thread, or what must not throw.
[[noreturn]] void terminateOrderly() {
  if (std::current_exception()) {
    try {
      throw;
    } catch (const std::bad_alloc&) {
      endWithoutMemory();
    } catch (...) {
      // A mistake: it is to be seen as one.
    }
  }
  if (furtherHandler != nullptr) furtherHandler();
  std::abort();
}

}  // namespace

void setLastWords(const LastWords& words) {
  lastWords = words;
  const auto before = std::set_terminate(terminateOrderly);
  if (before != terminateOrderly) furtherHandler = before;
}

void endWithoutMemory() noexcept {
  // A second thread has nothing to add.
  while (ending.test_and_set()) ::pause();
  clearPassingLine();
  // Where nobody listens, the status still tells.
  [[maybe_unused]] const ssize_t written =
      ::write(STDERR_FILENO, lastWords.text, std::strlen(lastWords.text));
  endProcess(lastWords.status);
}

}  // namespace tovrek
