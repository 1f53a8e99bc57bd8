#include "host/terminal.h"

#include <unistd.h>

namespace tovrek {

bool inputIsTyped() {
  return ::isatty(STDIN_FILENO) != 0;
}

bool errorIsSeen() {
  return ::isatty(STDERR_FILENO) != 0;
}

bool outputIsTerminal() {
  return ::isatty(STDOUT_FILENO) != 0;
}

std::string readUnseen(const std::string& prompt) {
  const char* typed = ::getpass(prompt.c_str());
  return typed == nullptr ? "" : typed;
}

}  // namespace tovrek
