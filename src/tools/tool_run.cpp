#include "tools/tool_run.h"

#include <fmt/format.h>

#include "log/SystemLog.h"
#include "log/module_loggers.h"

namespace tovrek {

int runTool(const std::vector<std::string>& argv, const std::string& workingDirectory,
            const std::vector<std::pair<std::string, std::string>>& environment) {
  Command command;
  command.argv = argv;
  command.workingDirectory = workingDirectory;
  command.environment = environment;
  const Outcome outcome = runQuietly(command);
  Global_TKLib_Logger().logDetailed(outcome.output);
  return outcome.status;
}

bool failWithStatus(ErrorText* error, std::string_view tag, int status) {
  return fail(error, fmt::format("Failed to execute {} with exit code: {}", tag, status));
}

bool runToolOrFail(const std::vector<std::string>& argv, std::string_view tag, ErrorText* error) {
  const int status = runTool(argv);
  return status == 0 || failWithStatus(error, tag, status);
}

std::optional<Outcome> runShell(const std::string& commandLine) {
  Outcome outcome;
  ErrorText reason;
  if (!runProcess(shellCommand(commandLine), &outcome, &reason)) {
    systemLog(fmt::format("NSEXCEPTION : {}", reason.text()));
    return std::nullopt;
  }
  Global_TKLib_Logger().logDetailed(outcome.output);
  return outcome;
}

}  // namespace tovrek
