#include "package/binary_symbols.h"

#include "host/process.h"

namespace tovrek {

std::string getSymbolsFromBinaryPath(const std::string& path, int* terminateStatus) {
  Command command;
  command.argv = {"/usr/bin/nm", "-j", path};
  Outcome outcome = runQuietly(command);
  if (terminateStatus != nullptr) *terminateStatus = outcome.status;
  return std::move(outcome.output);
}

}  // namespace tovrek
