#include "programs/security/passwords.h"

#include <unistd.h>

#include <iostream>

namespace tovrek::security {

std::string passwordFrom(const Options& options, char letter, const std::string& prompt) {
  if (const auto given = options.value(letter)) return *given;
  if (::isatty(STDIN_FILENO) != 0) {
    const char* typed = ::getpass(prompt.c_str());
    return typed == nullptr ? "" : typed;
  }
  std::string line;
  std::getline(std::cin, line);
  return line;
}

}  // namespace tovrek::security
