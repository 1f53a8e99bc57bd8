#include "host/signals.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <exception>

#include "host/platform.h"
#include "host/running_child.h"
#include "host/terminal.h"

namespace tovrek {
namespace {

// A slot is written by the main program only: 0 free, 1 being written, 2 in use. The handler
// reads slots in use; it interrupts the very thread that writes, so no lock is needed.
struct Slot {
  std::atomic<int> state{0};
  std::array<char, 4096> path{};
};
std::array<Slot, 64> slots;
std::atomic<pid_t> runningChild{0};

// By the last one endProcess() calls the main thread.
constexpr int kEnd = SIGUSR2;
constexpr std::array<int, 4> kFatalSignals = {SIGINT, SIGTERM, SIGHUP, kEnd};

// The status that endProcess() was called with.
constexpr int kNotEnding = -1;
std::atomic<int> endStatus{kNotEnding};
std::atomic<bool> hasHandlers{false};
pthread_t mainThread;

void endChildAndCleanUp(int number) {
  if (const pid_t child = runningChild.exchange(0); child > 0) {
    ::kill(-child, number);
    // The child may still write into the scratch folder: wait for it, then clean up.
    while (::waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
  clearPassingLine();
  removeRegisteredItems();
}

extern "C" void endBySignal(int number) {
  const int status = endStatus.load();
  endChildAndCleanUp(status == kNotEnding ? number : SIGTERM);
  if (status != kNotEnding) ::_exit(status);
  ::signal(number, SIG_DFL);
  ::raise(number);
  // Delivered when this handler returns, as the signal is blocked meanwhile.
}

}  // namespace

// Removing a tree needs calls that a handler may not make, so another program does it. Everything
// lies on the stack: a second signal may be handled by another thread meanwhile.
void removeRegisteredItems() {
  char name[] = "rm", option[] = "-rf", end[] = "--";
  std::array<char*, slots.size() + 4> arguments = {name, option, end};
  size_t count = 3;
  for (Slot& slot : slots) {
    if (slot.state.load() == 2) arguments[count++] = slot.path.data();
  }
  if (count == 3) return;
  const pid_t cleaner = forkInHandler();
  if (cleaner == 0) {
    char* const noEnvironment[] = {nullptr};
    ::execve("/bin/rm", arguments.data(), noEnvironment);
    ::_exit(127);
  }
  if (cleaner > 0) {
    while (::waitpid(cleaner, nullptr, 0) < 0 && errno == EINTR) {
    }
  }
}

void installSignalHandlers() {
  struct sigaction action {};
  action.sa_handler = endBySignal;
  sigemptyset(&action.sa_mask);
  for (const int number : kFatalSignals) sigaddset(&action.sa_mask, number);
  for (const int number : kFatalSignals) {
    struct sigaction old {};
    // A program started with a signal ignored (nohup) keeps ignoring it.
    const bool isIgnored = ::sigaction(number, nullptr, &old) == 0 && old.sa_handler == SIG_IGN;
    if (!isIgnored || number == kEnd) ::sigaction(number, &action, nullptr);
  }
  mainThread = ::pthread_self();
  hasHandlers.store(true);
}

void forgetInterruptions() {
  for (Slot& slot : slots) slot.state.store(0);
  runningChild.store(0);
  hasHandlers.store(false);
  ::signal(kEnd, SIG_DFL);
}

void endProcess(int status) noexcept {
  endStatus.store(status);
  if (hasHandlers.load() && ::pthread_equal(::pthread_self(), mainThread) == 0) {
    ::pthread_kill(mainThread, kEnd);
    for (;;) ::pause();
  }
  endChildAndCleanUp(SIGTERM);
  ::_exit(status);
}

RemovedOnSignal::RemovedOnSignal(const std::string& path)
    : slot_(-1), exceptions_(std::uncaught_exceptions()) {
  if (path.empty() || path.size() >= slots[0].path.size()) return;
  for (size_t i = 0; i < slots.size(); ++i) {
    int expected = 0;
    if (!slots[i].state.compare_exchange_strong(expected, 1)) continue;
    std::memcpy(slots[i].path.data(), path.c_str(), path.size() + 1);
    slots[i].state.store(2);
    slot_ = static_cast<int>(i);
    return;
  }
}

RemovedOnSignal::~RemovedOnSignal() {
  if (std::uncaught_exceptions() > exceptions_) return;
  if (slot_ >= 0) slots[static_cast<size_t>(slot_)].state.store(0);
}

SignalsBlocked::SignalsBlocked() {
  sigset_t set;
  sigemptyset(&set);
  for (const int number : kFatalSignals) sigaddset(&set, number);
  ::pthread_sigmask(SIG_BLOCK, &set, &old_);
}

SignalsBlocked::~SignalsBlocked() {
  ::pthread_sigmask(SIG_SETMASK, &old_, nullptr);
}

void setRunningChild(pid_t child) {
  runningChild.store(child);
}

}  // namespace tovrek
