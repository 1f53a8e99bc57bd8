#include "package/binary_symbols.h"

#include "tools/tool_run.h"

namespace tovrek {

std::string getSymbolsFromBinaryPath(const std::string& path, int* terminateStatus, bool* answered,
                                     ErrorText* error) {
  Command command;
  command.argv = {"/usr/bin/nm", "-j", path};
  Outcome outcome = runQuietly(command);
  if (terminateStatus != nullptr) *terminateStatus = outcome.status;
  const bool isAnswer = !outcome.signalled && outcome.status != kNotStarted;
  if (!isAnswer) failWithStatus(error, "nm", outcome.status, outcome.said());
  if (answered != nullptr) *answered = isAnswer;
  return std::move(outcome.output);
}

}  // namespace tovrek
