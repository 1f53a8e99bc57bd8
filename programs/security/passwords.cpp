#include "programs/security/passwords.h"

#include <iostream>

#include "host/terminal.h"

namespace tovrek::security {

std::string passwordFrom(const Options& options, char letter, const std::string& prompt) {
  if (const auto given = options.value(letter)) return *given;
  if (inputIsTyped()) return readUnseen(prompt);
  std::string line;
  std::getline(std::cin, line);
  return line;
}

}  // namespace tovrek::security
