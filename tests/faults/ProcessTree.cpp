#include "ProcessTree.h"

#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/syscall.h>
#include <sys/user.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

namespace tovrek::faults {
namespace {

bool isOfCrash(int signal) {
  switch (signal) {
    case SIGABRT:
    case SIGBUS:
    case SIGFPE:
    case SIGILL:
    case SIGSEGV:
    case SIGSYS:
    case SIGTRAP:
      return true;
    default:
      return false;
  }
}

void resume(pid_t process, int signal) {
  ::ptrace(PTRACE_CONT, process, nullptr, reinterpret_cast<void*>(static_cast<intptr_t>(signal)));
}

// A signal that comes before the watcher has taken the question for a call breaks the call off. A
// shell that handles the signal would see a close() that failed and has closed nothing, which no
// kernel does: it is made to be asked again, as it is for signals without a handler.
void restartClose([[maybe_unused]] pid_t process) {
#if defined(__x86_64__)
  constexpr long long kRestartUnlessHandled = -512, kRestart = -513;  // as the kernel has them
  user_regs_struct registers{};
  if (::ptrace(PTRACE_GETREGS, process, nullptr, &registers) != 0) return;
  const auto result = static_cast<long long>(registers.rax);
  if (registers.orig_rax != SYS_close || result != kRestartUnlessHandled) return;
  registers.rax = static_cast<unsigned long long>(kRestart);
  ::ptrace(PTRACE_SETREGS, process, nullptr, &registers);
#endif
}

}  // namespace

std::string programOf(pid_t process) {
  std::array<char, PATH_MAX> path;
  const std::string link = "/proc/" + std::to_string(process) + "/exe";
  const ssize_t size = ::readlink(link.c_str(), path.data(), path.size());
  return size < 0 ? "" : std::string(path.data(), static_cast<size_t>(size));
}

bool ProcessTree::adopt(pid_t main) {
  main_ = main;
  running_.insert(main);
  constexpr intptr_t kOptions =
      PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK | PTRACE_O_TRACECLONE | PTRACE_O_EXITKILL;
  return ::ptrace(PTRACE_SEIZE, main, nullptr, reinterpret_cast<void*>(kOptions)) == 0;
}

void ProcessTree::waitForAll() {
  while (true) {
    int status = 0;
    const pid_t process = ::waitpid(-1, &status, __WALL);
    if (process < 0 && errno == EINTR) continue;
    if (process < 0) return;
    if (WIFSTOPPED(status)) {
      noteStop(process, status);
    } else {
      noteEnd(process, status);
    }
  }
}

void ProcessTree::noteStop(pid_t process, int status) {
  {
    const std::lock_guard lock(mutex_);
    // The first that is heard of a new process is that it has stopped.
    running_.insert(process);
    if (killing_) ::kill(process, SIGKILL);
  }
  const int signal = WSTOPSIG(status);
  const int event = status >> 16;
  if (event == PTRACE_EVENT_STOP && signal != SIGTRAP) {
    // Stopped like any process by SIGSTOP and its kind: it has to stay so until SIGCONT.
    ::ptrace(PTRACE_LISTEN, process, nullptr, nullptr);
    return;
  }
  if (event != 0) return resume(process, 0);
  restartClose(process);
  if (isOfCrash(signal)) failing_[process] = programOf(process);
  resume(process, signal);
}

void ProcessTree::noteEnd(pid_t process, int status) {
  if (process == main_) mainStatus_ = status;
  const auto failing = failing_.extract(process);
  if (WIFSIGNALED(status) && !failing.empty()) {
    crashes_.push_back({failing.mapped(), WTERMSIG(status)});
  }
  const std::lock_guard lock(mutex_);
  running_.erase(process);
}

void ProcessTree::killAll() {
  const std::lock_guard lock(mutex_);
  killing_ = true;
  for (const pid_t process : running_) ::kill(process, SIGKILL);
}

}  // namespace tovrek::faults
