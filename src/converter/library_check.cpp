#include "converter/library_check.h"

#include "converter/codesign_commands.h"
#include "converter/common.h"
#include "host/files.h"
#include "host/utf8.h"
#include "tools/tool_run.h"

namespace tovrek::converter {

bool VerifyOrvaneDylib(const std::string& path, ErrorText* error) {
  Command command;
  command.argv = displayAuthoritiesCommand(path);
  command.standardError = StandardError::kCapture;
  Outcome outcome;
  ErrorText reason;
  if (!runProcess(command, &outcome, &reason)) {
    return outcome.hadNoPipe
               ? fail(error,
                      "Failed to validate that dylib is signed by Orvane (could not create pipe).")
               : failNotStarted(error, reason);
  }
  if (outcome.status != 0) {
    return failWithStatus(error, "codesign-verifyOrvaneDylib", outcome.status, outcome.errorOutput);
  }
  if (!isUtf8(outcome.errorOutput)) return fail(error, "Failed to allocate memory.");
  constexpr char kAuthority[] = "Authority=iPhone Distribution: Orvane Systems, Inc";
  if (outcome.errorOutput.find(kAuthority) == std::string::npos) {
    return fail(error, "Failed to validate that dylib is signed by Orvane.");
  }
  return true;
}

bool checkOrvaneDylib(const std::string& path, ErrorText* error) {
  if (!fileExists(path)) return failMissingFile(error, path);
  return VerifyOrvaneDylib(path, error);
}

bool checkOrvaneLoggerDylib(const std::string& path, ErrorText* error) {
  return checkOrvaneDylib(path, error);
}

}  // namespace tovrek::converter
