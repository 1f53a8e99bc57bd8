#include "tools/tool_run.h"

#include <fmt/format.h>

#include <utility>

#include "host/Streams.h"
#include "host/paths.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

// What the program complains of is read here first, so that it can be explained.
Outcome runAndShow(const WrapperLogger& log, Command command, ProgressStage* stage = nullptr) {
  command.standardError = StandardError::kCapture;
  const Outcome outcome = runPart(std::move(command), stage);
  printError(outcome.errorOutput);
  log.logDetailed(outcome.output, LineBreaks::kKept);
  return outcome;
}

}  // namespace

int runTool(const WrapperLogger& log, const std::vector<std::string>& argv,
            const std::string& workingDirectory,
            const std::vector<std::pair<std::string, std::string>>& environment) {
  Command command;
  command.argv = argv;
  command.workingDirectory = workingDirectory;
  command.environment = environment;
  return runAndShow(log, std::move(command)).status;
}

bool failNotStarted(ErrorText* error, const ErrorText& reason) {
  return fail(error, fmt::format("Catch an exception! Exception description: {}", reason.text()));
}

void logNotStarted(const ErrorText& reason) {
  systemLog(fmt::format("NSEXCEPTION : {}", reason.text()));
}

bool failWithStatus(ErrorText* error, std::string_view tag, int status, std::string_view said) {
  return fail(error, fmt::format("Failed to execute {} with exit code: {}", tag, status), said);
}

bool runToolOrFail(const WrapperLogger& log, const std::vector<std::string>& argv,
                   std::string_view tag, ErrorText* error, ProgressStage* stage) {
  Command command;
  command.argv = argv;
  const Outcome outcome = runAndShow(log, std::move(command), stage);
  if (outcome.status == 0) return true;
  const std::string complaint = trimmed(outcome.errorOutput);
  if (!complaint.empty()) log.logError(complaint, LineBreaks::kKept);
  return failWithStatus(error, tag, outcome.status, outcome.said());
}

Outcome runPart(Command command, ProgressStage* stage) {
  if (stage != nullptr) command.onProgress = stage->partReports();
  if (!command.onProgress) return runQuietly(command);
  const bool wasShared = command.standardError == StandardError::kInherit;
  if (wasShared) command.standardError = StandardError::kCapture;
  Outcome outcome = runQuietly(command);
  stage->endPart();
  if (wasShared) printError(std::exchange(outcome.errorOutput, {}));
  return outcome;
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
