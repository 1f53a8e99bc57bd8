#include "host/Streams.h"

#include <cstdio>

#include "host/terminal.h"

namespace tovrek {

void printOut(std::string_view text) {
  clearPassingLine();
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

bool outputFailed() {
  return std::ferror(stdout) != 0;
}

void printError(std::string_view text) {
  clearPassingLine();
  std::fflush(stdout);
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace tovrek
