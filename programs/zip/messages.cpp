#include "programs/zip/messages.h"

#include <fmt/format.h>

#include "host/printable.h"
#include "programs/zip/status.h"

namespace tovrek::zip {

void Messages::tell(std::string_view line) const {
  if (!options_.quiet) streams_.out(line);
}

void Messages::warn(std::string_view text) const {
  tell(fmt::format("\tzip warning: {}\n", printable(text)));
}

void Messages::complain(std::string_view text) const {
  streams_.error(fmt::format("\tzip warning: {}\n", printable(text)));
}

int Messages::failWith(int status, std::string_view text, std::string_view reason) const {
  if (!reason.empty()) streams_.out(fmt::format("\nzip I/O error: {}", reason));
  streams_.out(fmt::format("\nzip error: {}\n", text));
  return status;
}

int Messages::failNothingToDo() const {
  if (!options_.recurse) {
    return failWith(kNothingToDo, fmt::format("Nothing to do! ({})", options_.archive));
  }
  std::string hint = fmt::format("zip {}{} . -i", options_.flagsAsGiven, options_.archive);
  for (const std::string& operand : options_.operands) hint += " " + operand;
  return failWith(kNothingToDo, fmt::format("Nothing to do! (try: {})", hint));
}

}  // namespace tovrek::zip
