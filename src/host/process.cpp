#include "host/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string_view>

#include "host/Channels.h"
#include "host/HostRoot.h"
#include "host/child_start.h"
#include "host/file_io.h"
#include "host/own_programs.h"
#include "host/paths.h"
#include "host/platform.h"
#include "host/running_child.h"
#include "host/shell_line.h"
#include "host/spawning.h"

namespace tovrek {
namespace {

constexpr const char* kShell = "/bin/sh";

// A bare name is found in the child's PATH, not in that of this process.
std::string findProgram(const std::string& name) {
  if (name.find('/') != std::string::npos) return HostRoot::resolve(name);
  // First, as in the child's PATH, which cannot name a folder with a colon in it.
  if (const std::string own = HostRoot::companion(name); !own.empty()) return own;
  const std::string searchPath = HostRoot::searchPath();
  std::string_view rest = searchPath;
  while (!rest.empty()) {
    const std::string_view folder = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(rest.size(), folder.size() + 1));
    const std::string candidate = std::string(folder) + "/" + name;
    if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate;
  }
  return name;
}

// Other programs would not know what the descriptor is, and hand it on.
bool isCompanion(const std::string& program) {
  const std::string root = HostRoot::folder();
  return !root.empty() && program.starts_with(joinPath(root, "usr/bin/"));
}

// Hands on what has arrived; the last report once more where nothing has.
void takeReports(const ProgressChannel& channel, const Command& command, Progress* last) {
  while (const auto report = channel.receive()) *last = *report;
  command.onProgress(*last);
}

// Reads both pipes, and feeds the input, until all are closed; one alone could block the child.
// False, with errno, when something may be missing from the output.
bool exchange(Channels& channels, const Command& command, Outcome* outcome) {
  constexpr int kReportInterval = 200;  // milliseconds
  auto& [input, output, errors, progress] = channels;
  std::string_view text = command.input;
  Progress last;
  std::array<char, 65536> buffer;
  // A blocking write of more than the pipe holds would wait for a child that waits for us.
  ::fcntl(input.writeEnd.get(), F_SETFL, O_NONBLOCK);
  if (text.empty()) input.writeEnd.close();
  int failure = 0;
  while (output.readEnd.valid() || errors.readEnd.valid() || input.writeEnd.valid()) {
    std::array<pollfd, 4> watched = {
        pollfd{output.readEnd.get(), POLLIN, 0}, pollfd{errors.readEnd.get(), POLLIN, 0},
        pollfd{input.writeEnd.get(), POLLOUT, 0}, pollfd{progress.parentEnd(), POLLIN, 0}};
    const int patience = progress.isOpen() ? kReportInterval : -1;
    if (::poll(watched.data(), watched.size(), patience) < 0 && errno != EINTR) return false;
    if (progress.isOpen()) takeReports(progress, command, &last);
    const auto drain = [&](const pollfd& state, UniqueFd& end, std::string* sink) {
      if (state.revents == 0 || !end.valid()) return;
      const ssize_t got = ::read(end.get(), buffer.data(), buffer.size());
      if (got > 0) sink->append(buffer.data(), static_cast<size_t>(got));
      const bool failed = got < 0 && errno != EINTR;
      if (failed) failure = errno;
      if (got == 0 || failed) end.close();
    };
    drain(watched[0], output.readEnd, &outcome->output);
    drain(watched[1], errors.readEnd, &outcome->errorOutput);
    if (watched[2].revents != 0 && input.writeEnd.valid()) {
      const ssize_t put = ::write(input.writeEnd.get(), text.data(), text.size());
      if (put > 0) text.remove_prefix(static_cast<size_t>(put));
      if (text.empty() || (put < 0 && errno != EINTR && errno != EAGAIN)) input.writeEnd.close();
    }
  }
  if (progress.isOpen()) takeReports(progress, command, &last);
  errno = failure;
  return failure == 0;
}

// The command that a shell would do nothing but start, where a copy of this process can run it;
// none for all else.
std::optional<Command> withoutShell(const Command& command) {
  if (command.argv.size() != 3 || command.argv[0] != kShell || command.argv[1] != "-c") {
    return std::nullopt;
  }
  auto words = plainWords(command.argv[2]);
  if (!words || ownProgramAt(findProgram(words->front())) == nullptr) return std::nullopt;
  Command direct = command;
  direct.argv = std::move(*words);
  return direct;
}

}  // namespace

bool runProcess(const Command& command, Outcome* outcome, ErrorText* error) {
  *outcome = Outcome();
  if (command.argv.empty()) return fail(error, "no program named");
  if (const auto direct = withoutShell(command)) return runProcess(*direct, outcome, error);
  std::fflush(stdout);

  const std::string program = findProgram(command.argv.front());
  Channels channels;
  if (!channels.open()) {
    outcome->hadNoPipe = true;
    return failWithErrno(error);
  }
  if (command.onProgress && isCompanion(program)) channels.progress.open();
  // A child that does not read its input must not end this program.
  ::signal(SIGPIPE, SIG_IGN);
  pid_t child = 0;
  {
    const SignalsBlocked blocked;
    const int result = startChild(command, program, channels, blocked.oldMask(), &child);
    if (result != 0) return fail(error, std::strerror(result));
    setRunningChild(child);
  }
  const int lost = exchange(channels, command, outcome) ? 0 : errno;
  channels.closeOwnEnds();

  // Only learn of the end first: a child that is reaped must not be signalled any more.
  siginfo_t ended{};
  while (::waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT) < 0 &&
         errno == EINTR) {
  }
  const SignalsBlocked blocked;
  setRunningChild(0);
  int status = 0;
  pid_t reaped = 0;
  while ((reaped = ::waitpid(child, &status, 0)) < 0 && errno == EINTR) {
  }
  if (reaped < 0) return failWithErrno(error);
  // Half an output is no answer.
  if (lost != 0) return fail(error, std::strerror(lost));
  outcome->signalled = WIFSIGNALED(status);
  outcome->status = outcome->signalled ? WTERMSIG(status) : WEXITSTATUS(status);
  return true;
}

Outcome runQuietly(const Command& command) {
  Outcome outcome;
  if (ErrorText reason; !runProcess(command, &outcome, &reason)) {
    outcome = Outcome();
    outcome.status = kNotStarted;
    outcome.notStarted = reason.text();
  }
  return outcome;
}

std::string replaceProcess(std::vector<std::string> argv) {
  // What is ignored here would stay so there.
  const auto ignored = ::signal(SIGXFSZ, SIG_DFL);
  ::execv(argv.front().c_str(), pointersTo(argv).data());
  const int failure = errno;
  ::signal(SIGXFSZ, ignored);
  return std::strerror(failure);
}

Command shellCommand(const std::string& commandLine) {
  std::string launched = commandLine;
  const std::string tool = commandLine.substr(0, commandLine.find(' '));
  std::string replacement = tool;
  if (commandLine.starts_with('/')) {
    replacement = HostRoot::resolve(tool);
  } else if (!HostRoot::canBeInSearchPath()) {
    if (const std::string own = HostRoot::companion(tool); !own.empty()) replacement = own;
  }
  if (replacement != tool) launched = quotedForShell(replacement) + commandLine.substr(tool.size());
  Command command;
  command.argv = {kShell, "-c", launched};
  command.shellTool = tool;
  return command;
}

std::string quotedForShell(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

}  // namespace tovrek
