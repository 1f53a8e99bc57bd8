#include "host/Children.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

#include "host/file_io.h"
#include "host/platform.h"
#include "host/spawning.h"

extern char** environ;

namespace tovrek {
namespace {

// What a child gets to clean up after itself.
constexpr std::chrono::seconds kGrace{5};

// Whether the child ends in time; it is not reaped.
bool waitFor(pid_t child, std::chrono::milliseconds patience) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kBetweenLooks{50};  // where nothing tells of the end
  const auto deadline = Clock::now() + patience;
  const UniqueFd process(watchChild(child));
  for (;;) {
    siginfo_t ended{};
    const int waited =
        ::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT | WNOHANG);
    if (waited == 0 && ended.si_pid == child) return true;
    if (waited < 0 && errno != EINTR) return true;  // reap() tells of it
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return false;
    pollfd watched{process.get(), POLLIN, 0};
    const auto sleep = process.valid() ? left : std::min(left, kBetweenLooks);
    ::poll(&watched, process.valid() ? 1 : 0,
           static_cast<int>(std::min<int64_t>(sleep.count() + 1, INT_MAX)));
  }
}

}  // namespace

// Answers the error's number, 0 for none. Called with the mutex held: a child that stop() does not
// know of would never hear of it.
int Children::start(ChildOrder* order, int output, int* child) {
  FileActions files;
  posix_spawn_file_actions_addopen(&files.value, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&files.value, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&files.value, output, STDERR_FILENO);
  if (!order->workingDirectory.empty()) {
    posix_spawn_file_actions_addchdir_np(&files.value, order->workingDirectory.c_str());
  }
  SpawnAttributes spawning;
  const sigset_t defaults = endingSignals();
  sigset_t unblocked;
  sigemptyset(&unblocked);
  posix_spawnattr_setsigdefault(&spawning.value, &defaults);
  posix_spawnattr_setsigmask(&spawning.value, &unblocked);
  posix_spawnattr_setpgroup(&spawning.value, 0);
  posix_spawnattr_setflags(&spawning.value,
                           POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  return ::posix_spawn(child, order->argv.front().c_str(), &files.value, &spawning.value,
                       pointersTo(order->argv).data(), environ);
}

bool Children::run(ChildOrder order, ChildEnd* end, ErrorText* error) {
  *end = ChildEnd();
  if (order.argv.empty()) return fail(error, "no program named");
  const int flags = O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC;
  UniqueFd output(::open(order.output.c_str(), flags, 0600));
  if (!output.valid()) return failWithErrno(error);
  pid_t child = 0;
  {
    const std::lock_guard lock(mutex_);
    if (stopped_) return fail(error, "the run was interrupted");
    const int failure = start(&order, output.get(), &child);
    if (failure != 0) return fail(error, std::strerror(failure));
    running_.insert(child);
  }
  output.close();
  if (order.limit && !waitFor(child, *order.limit)) {
    end->outlasted = true;
    ::kill(-child, SIGTERM);
    waitFor(child, kGrace);
    // Those that it has started too, which may not have heard of its end.
    ::kill(-child, SIGKILL);
  }
  return reap(child, end, error);
}

bool Children::reap(int child, ChildEnd* end, ErrorText* error) {
  // Only learn of the end first: a child that is reaped must not be signalled any more.
  siginfo_t ended{};
  while (::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) < 0 &&
         errno == EINTR) {
  }
  const std::lock_guard lock(mutex_);
  running_.erase(child);
  int status = 0;
  pid_t reaped = 0;
  while ((reaped = ::waitpid(child, &status, 0)) < 0 && errno == EINTR) {
  }
  if (reaped < 0) return failWithErrno(error);
  end->signalled = WIFSIGNALED(status);
  end->status = end->signalled ? WTERMSIG(status) : WEXITSTATUS(status);
  return true;
}

void Children::stop(int signal) {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  for (const int child : running_) ::kill(-child, signal);
}

bool Children::isStopped() {
  const std::lock_guard lock(mutex_);
  return stopped_;
}

}  // namespace tovrek
