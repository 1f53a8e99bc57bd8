#include "host/child_start.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include "host/child_environment.h"
#include "host/file_io.h"
#include "host/own_programs.h"
#include "host/signals.h"
#include "host/spawning.h"

extern char** environ;

namespace tovrek {
namespace {

std::vector<std::string> environmentFor(const Command& command, const Channels& channels) {
  std::vector<std::string> environment = childEnvironment(command);
  if (channels.progress.isOpen()) {
    environment.push_back(std::string(kProgressVariable) + "=" +
                          std::to_string(ProgressChannel::kChildDescriptor));
  }
  return environment;
}

// Which descriptor becomes the child's standard error; its own of the parent's where it has none.
int errorsOf(const Command& command, const Channels& channels) {
  switch (command.standardError) {
    case StandardError::kCapture:
      return channels.errors.writeEnd.get();
    case StandardError::kMergeIntoOutput:
      return channels.output.writeEnd.get();
    case StandardError::kInherit:
      break;
  }
  return STDERR_FILENO;
}

// The first of several calls' failures, which answer it as a number.
class FirstFailure {
 public:
  void note(int result) {
    if (number_ == 0) number_ = result;
  }
  int number() const { return number_; }

 private:
  int number_ = 0;
};

int spawnChild(const Command& command, const std::string& program, const Channels& channels,
               const sigset_t& mask, pid_t* child) {
  FileActions files;
  SpawnAttributes spawning;
  FirstFailure failure;
  if (command.input.empty()) {
    failure.note(posix_spawn_file_actions_addopen(&files.value, 0, "/dev/null", O_RDONLY, 0));
  } else {
    failure.note(posix_spawn_file_actions_adddup2(&files.value, channels.input.readEnd.get(), 0));
  }
  failure.note(posix_spawn_file_actions_adddup2(&files.value, channels.output.writeEnd.get(), 1));
  if (const int errors = errorsOf(command, channels); errors != STDERR_FILENO) {
    failure.note(posix_spawn_file_actions_adddup2(&files.value, errors, STDERR_FILENO));
  }
  if (channels.progress.isOpen()) {
    // Behind the others, whose descriptors may have this number here.
    failure.note(posix_spawn_file_actions_adddup2(&files.value, channels.progress.childEnd(),
                                                  ProgressChannel::kChildDescriptor));
  }
  if (!command.workingDirectory.empty()) {
    failure.note(
        posix_spawn_file_actions_addchdir_np(&files.value, command.workingDirectory.c_str()));
  }
  const sigset_t defaults = endingSignals();
  failure.note(posix_spawnattr_setsigdefault(&spawning.value, &defaults));
  failure.note(posix_spawnattr_setsigmask(&spawning.value, &mask));
  // A group of its own, so that an interruption reaches all programs of a pipeline.
  failure.note(posix_spawnattr_setpgroup(&spawning.value, 0));
  failure.note(posix_spawnattr_setflags(
      &spawning.value, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP));
  if (failure.number() != 0) return failure.number();

  std::vector<std::string> arguments = command.argv;
  std::vector<std::string> environment = environmentFor(command, channels);
  return ::posix_spawn(child, program.c_str(), &files.value, &spawning.value,
                       pointersTo(arguments).data(), pointersTo(environment).data());
}

// In the copy: gives it the streams that the child is to have and closes all else.
bool takeStreams(const Command& command, const Channels& channels) {
  const UniqueFd nothing(command.input.empty() ? ::open("/dev/null", O_RDONLY | O_CLOEXEC) : -1);
  const int input = command.input.empty() ? nothing.get() : channels.input.readEnd.get();
  if (::dup2(input, STDIN_FILENO) < 0 ||
      ::dup2(channels.output.writeEnd.get(), STDOUT_FILENO) < 0 ||
      ::dup2(errorsOf(command, channels), STDERR_FILENO) < 0) {
    return false;
  }
  int firstUnused = STDERR_FILENO + 1;
  if (channels.progress.isOpen()) {
    static_assert(ProgressChannel::kChildDescriptor == STDERR_FILENO + 1);
    if (::dup2(channels.progress.childEnd(), ProgressChannel::kChildDescriptor) < 0) return false;
    ++firstUnused;
  }
  closeFrom(firstUnused);
  return true;
}

// The copy's whole life. What keeps a process from being started is told as a shell would tell it.
[[noreturn]] void liveAs(const OwnProgram& own, const Command& command, const std::string& program,
                         const Channels& channels, const sigset_t& mask) noexcept {
  // First of all: a copy that ends for want of memory must not remove what is its parent's.
  forgetInterruptions();
  ::setpgid(0, 0);
  std::vector<std::string> environment = environmentFor(command, channels);
  const std::vector<char*> variables = pointersTo(environment);
  const bool isReady =
      takeStreams(command, channels) &&
      (command.workingDirectory.empty() || ::chdir(command.workingDirectory.c_str()) == 0);
  if (!isReady) {
    const std::string text = program + ": " + std::strerror(errno) + "\n";
    writeAll(STDERR_FILENO, text);
    ::_exit(kNotStarted);
  }
  environ = const_cast<char**>(variables.data());
  for (const int number : kEndingSignals) ::signal(number, SIG_DFL);
  ::sigprocmask(SIG_SETMASK, &mask, nullptr);
  endAs(own, program, command.argv);
}

int copyChild(const OwnProgram& own, const Command& command, const std::string& program,
              const Channels& channels, const sigset_t& mask, pid_t* child) {
  if (own.prepare != nullptr) own.prepare();
  *child = ::fork();
  if (*child == 0) liveAs(own, command, program, channels, mask);
  if (*child < 0) return errno;
  // Whoever comes first: an interruption is passed on to the group.
  ::setpgid(*child, *child);
  return 0;
}

}  // namespace

int startChild(const Command& command, const std::string& program, Channels& channels,
               const sigset_t& mask, pid_t* child) {
  const OwnProgram* own = ownProgramAt(program);
  const int result = own == nullptr ? spawnChild(command, program, channels, mask, child)
                                    : copyChild(*own, command, program, channels, mask, child);
  channels.closeChildEnds();
  return result;
}

}  // namespace tovrek
