// Starting other programs.
#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/ErrorText.h"
#include "host/progress_report.h"

namespace tovrek {

enum class StandardError { kInherit, kCapture, kMergeIntoOutput };

struct Command {
  // argv[0] is the program. An absolute path is looked up in the host root first; a bare name
  // is searched in the child's PATH.
  std::vector<std::string> argv{};
  std::string workingDirectory{};  // empty: the caller's
  StandardError standardError = StandardError::kInherit;
  std::string input{};  // given on standard input, which is empty otherwise
  // Variables set on top of the clean environment.
  std::vector<std::pair<std::string, std::string>> environment{};
  // The program that a shell is to run, where argv[0] is one: by its name, or by argv[0], it is
  // decided whether the child gets passwords and pins that are in the environment.
  std::string shellTool{};
  // Told what the child reports of its progress, and the same again when it has been silent for a
  // while. Only programs of the host root are given the means to report.
  std::function<void(const Progress&)> onProgress{};
};

struct Outcome {
  // Exit status, or the signal's number when a signal ended the child.
  int status = 0;
  bool signalled = false;
  bool hadNoPipe = false;   // not started, for want of the pipes to read it through
  std::string output;       // standard output (and standard error where merged)
  std::string errorOutput;  // filled for StandardError::kCapture
  std::string notStarted;   // why not, from runQuietly()
  // What there is to say of a failure.
  const std::string& said() const { return errorOutput.empty() ? notStarted : errorOutput; }
};

// Runs the program, reads its output to the end and waits for it. False, with the reason, when
// it could not be started, or its output or status could not be had; a non-zero status is an
// Outcome.
//
// The child gets LC_ALL=C.UTF-8, <host root>/usr/bin in front of PATH, none of the variables by
// which zip and unzip take hidden options, and default signal handling. Standard output of this
// process is flushed first, so that a captured terminal reads in order.
bool runProcess(const Command& command, Outcome* outcome, ErrorText* error = nullptr);

// The status of a program that could not be started, as a shell would report it.
inline constexpr int kNotStarted = 127;

// The same for callers that do not ask for the reason: a program that could not be started gives
// kNotStarted, the reason and no output.
Outcome runQuietly(const Command& command);

// Replaces this process by the program argv[0], a path. Returns only when that fails, with the
// system's reason.
std::string replaceProcess(std::vector<std::string> argv);

// "/bin/sh" "-c" `commandLine`. When the text starts with an absolute tool path that the host
// root replaces, the launched text has the replacement, quoted; callers show their own text.
Command shellCommand(const std::string& commandLine);

// `text` as one word of /bin/sh, in apostrophes.
std::string quotedForShell(const std::string& text);

}  // namespace tovrek
