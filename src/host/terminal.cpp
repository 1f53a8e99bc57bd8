#include "host/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

namespace tovrek {
namespace {

// Of the process, as its terminal is: a signal handler has to know.
constinit std::atomic<bool> passingLineIsShown = false;
constexpr std::string_view kClearToEnd = "\r\x1b[K";

// As it is called in a handler: errno stays, and what cannot be written is left.
void writeToTerminal(std::string_view text) noexcept {
  const int before = errno;
  [[maybe_unused]] const ssize_t written = ::write(STDERR_FILENO, text.data(), text.size());
  errno = before;
}

}  // namespace

bool inputIsTyped() {
  return ::isatty(STDIN_FILENO) != 0;
}

bool errorIsSeen() {
  return ::isatty(STDERR_FILENO) != 0;
}

bool outputIsTerminal() {
  return ::isatty(STDOUT_FILENO) != 0;
}

std::optional<size_t> errorLineWidth() {
  constexpr size_t kUsual = 80;
  const char* kind = std::getenv("TERM");
  if (!errorIsSeen() || kind == nullptr || *kind == '\0' || std::string_view(kind) == "dumb") {
    return std::nullopt;
  }
  winsize size{};
  const bool known = ::ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col != 0;
  // In the last column some terminals go on to the next line.
  return (known ? size.ws_col : kUsual) - 1;
}

void showPassingLine(std::string_view text) {
  passingLineIsShown.store(true);
  writeToTerminal("\r" + std::string(text) + "\x1b[K");
}

void clearPassingLine() noexcept {
  if (passingLineIsShown.exchange(false)) writeToTerminal(kClearToEnd);
}

void forgetPassingLine() noexcept {
  passingLineIsShown.store(false);
}

std::string readUnseen(const std::string& prompt) {
  const char* typed = ::getpass(prompt.c_str());
  return typed == nullptr ? "" : typed;
}

}  // namespace tovrek
