#include "host/Children.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/file_io.h"
#include "host/spawning.h"

extern char** environ;

namespace tovrek {

// Answers the error's number, 0 for none. Called with the mutex held: a child that stop() does not
// know of would never hear of it.
int Children::start(ChildOrder* order, int output, int* child) {
  FileActions files;
  posix_spawn_file_actions_addopen(&files.actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&files.actions, output, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&files.actions, output, STDERR_FILENO);
  if (!order->workingDirectory.empty()) {
    posix_spawn_file_actions_addchdir_np(&files.actions, order->workingDirectory.c_str());
  }
  SpawnAttributes spawning;
  const sigset_t defaults = endingSignals();
  sigset_t unblocked;
  sigemptyset(&unblocked);
  posix_spawnattr_setsigdefault(&spawning.attributes, &defaults);
  posix_spawnattr_setsigmask(&spawning.attributes, &unblocked);
  posix_spawnattr_setpgroup(&spawning.attributes, 0);
  posix_spawnattr_setflags(&spawning.attributes,
                           POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
  return ::posix_spawn(child, order->argv.front().c_str(), &files.actions, &spawning.attributes,
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
