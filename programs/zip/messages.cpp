#include "programs/zip/messages.h"

#include <fmt/format.h>

#include <cstring>

#include "log/SystemLog.h"
#include "programs/zip/status.h"

namespace tovrek::zip {

void warn(const ZipOptions& options, std::string_view text) {
  if (!options.quiet) printOut(fmt::format("\tzip warning: {}\n", text));
}

int failWith(int status, std::string_view text, int reason) {
  if (reason != 0) printOut(fmt::format("\nzip I/O error: {}", std::strerror(reason)));
  printOut(fmt::format("\nzip error: {}\n", text));
  return status;
}

int failNothingToDo(const ZipOptions& options) {
  if (!options.recurse) {
    return failWith(kNothingToDo, fmt::format("Nothing to do! ({})", options.archive));
  }
  std::string hint = fmt::format("zip {}{} . -i", options.flagsAsGiven, options.archive);
  for (const std::string& operand : options.operands) hint += " " + operand;
  return failWith(kNothingToDo, fmt::format("Nothing to do! (try: {})", hint));
}

}  // namespace tovrek::zip
