#include "programs/security/passwords.h"

#include <fmt/format.h>

#include <iostream>

#include "host/terminal.h"
#include "programs/security/status.h"

namespace tovrek::security {

std::string passwordFrom(const Options& options, char letter, const std::string& prompt) {
  return givenPassword(options, letter, prompt).value_or("");
}

std::optional<std::string> givenPassword(const Options& options, char letter,
                                         const std::string& prompt) {
  if (const auto given = options.value(letter)) return std::string(*given);
  if (inputIsTyped()) return readUnseen(prompt);
  std::string line;
  return std::getline(std::cin, line) ? std::optional(line) : std::nullopt;
}

int reportNoPassword(std::string_view call, char letter, const Streams& streams) {
  return reportFailure(
      fmt::format("{0}: no password was given: -{1} PASSWORD, or -{1} \"\" for none", call, letter),
      streams);
}

}  // namespace tovrek::security
