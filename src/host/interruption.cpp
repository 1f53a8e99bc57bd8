#include "host/interruption.h"

#include <signal.h>

#include <atomic>

namespace tovrek {
namespace {

std::atomic<int> noted{0};
static_assert(std::atomic<int>::is_always_lock_free, "set by a signal handler");

extern "C" void noteSignal(int number) {
  int none = 0;
  noted.compare_exchange_strong(none, number);
}

}  // namespace

void noteInterruptions() {
  struct sigaction action {};
  action.sa_handler = noteSignal;
  action.sa_flags = SA_RESTART;
  sigemptyset(&action.sa_mask);
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
    struct sigaction old {};
    if (::sigaction(number, nullptr, &old) == 0 && old.sa_handler == SIG_IGN) continue;
    ::sigaction(number, &action, nullptr);
  }
}

int interruption() {
  return noted.load();
}

void endByInterruption() {
  ::signal(noted.load(), SIG_DFL);
  ::raise(noted.load());
}

}  // namespace tovrek
