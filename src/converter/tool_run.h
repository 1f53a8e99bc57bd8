// External programs, run as the pipeline runs them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/ErrorText.h"
#include "host/process.h"

namespace tovrek::converter {

// Runs the program (no shell), reads its standard output to the end and logs it at detailed
// level. The exit status; 127 when the program cannot be started, as a shell would have it.
int runTool(const std::vector<std::string>& argv, const std::string& workingDirectory = {});

// "Failed to execute <tag> with exit code: <status>" in the slot; false.
bool failWithStatus(ErrorText* error, std::string_view tag, int status);

// Runs the program and fails with that text for any status but 0.
bool runToolOrFail(const std::vector<std::string>& argv, std::string_view tag, ErrorText* error);

// "/bin/sh" "-c" `commandLine`; the output is logged at detailed level. None, with a console
// line, when the shell cannot be started.
std::optional<Outcome> runShell(const std::string& commandLine);

}  // namespace tovrek::converter
