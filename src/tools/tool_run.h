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
#include "log/ProgressStage.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// Runs the program, with `environment` on top of the usual one, and logs its standard output at
// detailed level. Answers the exit status.
int runTool(const WrapperLogger& log, const std::vector<std::string>& argv,
            const std::string& workingDirectory = {},
            const std::vector<std::pair<std::string, std::string>>& environment = {});

// What is said of a program that could not be started where a status would say too little. The
// first goes into the slot and answers false, the second into the system log.
bool failNotStarted(ErrorText* error, const ErrorText& reason);
void logNotStarted(const ErrorText& reason);

// Puts "Failed to execute <tag> with exit code: <status>" into the slot, with what the program
// said; false.
bool failWithStatus(ErrorText* error, std::string_view tag, int status, std::string_view said = {});

// As runTool; any status but 0 fails with that text. The program does a part of `stage`, which may
// be null.
bool runToolOrFail(const WrapperLogger& log, const std::vector<std::string>& argv,
                   std::string_view tag, ErrorText* error, ProgressStage* stage = nullptr);

// As runQuietly(), with the program a part of the stage, which may be null. What the program would
// write beside the stage's line is shown when that is gone.
Outcome runPart(Command command, ProgressStage* stage);

// "/bin/sh" "-c" `commandLine`; the output is logged at detailed level. None, with a line in the
// system log, when the shell cannot be started.
std::optional<Outcome> runShell(const WrapperLogger& log, const std::string& commandLine);

}  // namespace tovrek
