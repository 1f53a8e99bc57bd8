// External programs, run as the whole toolkit runs them: no shell unless asked for, standard
// output read to its end, the exit status judged by the caller.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/ErrorText.h"
#include "host/process.h"

namespace tovrek {

// Runs the program, with `environment` on top of the usual one, and logs its standard output at
// detailed level. Answers the exit status.
int runTool(const std::vector<std::string>& argv, const std::string& workingDirectory = {},
            const std::vector<std::pair<std::string, std::string>>& environment = {});

// Puts "Failed to execute <tag> with exit code: <status>" into the slot; false.
bool failWithStatus(ErrorText* error, std::string_view tag, int status);

// As runTool; any status but 0 fails with that text.
bool runToolOrFail(const std::vector<std::string>& argv, std::string_view tag, ErrorText* error);

// "/bin/sh" "-c" `commandLine`; the output is logged at detailed level. None, with a line in the
// system log, when the shell cannot be started.
std::optional<Outcome> runShell(const std::string& commandLine);

}  // namespace tovrek
