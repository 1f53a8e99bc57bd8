#include "tools/tool_run.h"

#include <fmt/format.h>

#include "log/SystemLog.h"

namespace tovrek {

int runTool(const WrapperLogger& log, const std::vector<std::string>& argv,
            const std::string& workingDirectory,
            const std::vector<std::pair<std::string, std::string>>& environment) {
  Command command;
  command.argv = argv;
  command.workingDirectory = workingDirectory;
  command.environment = environment;
  const Outcome outcome = runQuietly(command);
  log.logDetailed(outcome.output, LineBreaks::kKept);
  return outcome.status;
}

bool failNotStarted(ErrorText* error, const ErrorText& reason) {
  return fail(error, fmt::format("Catch an exception! Exception description: {}", reason.text()));
}

void logNotStarted(const ErrorText& reason) {
  systemLog(fmt::format("NSEXCEPTION : {}", reason.text()));
}

bool failWithStatus(ErrorText* error, std::string_view tag, int status) {
  return fail(error, fmt::format("Failed to execute {} with exit code: {}", tag, status));
}

bool runToolOrFail(const WrapperLogger& log, const std::vector<std::string>& argv,
                   std::string_view tag, ErrorText* error) {
  const int status = runTool(log, argv);
  return status == 0 || failWithStatus(error, tag, status);
}

std::optional<Outcome> runShell(const WrapperLogger& log, const std::string& commandLine) {
  Outcome outcome;
  ErrorText reason;
  if (!runProcess(shellCommand(commandLine), &outcome, &reason)) {
    logNotStarted(reason);
    return std::nullopt;
  }
  log.logDetailed(outcome.output, LineBreaks::kKept);
  return outcome;
}

}  // namespace tovrek
