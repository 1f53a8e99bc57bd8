#include "log/SystemLog.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>

#include "host/clock.h"

namespace tovrek {

void systemLog(std::string_view text) {
  const double now = currentTime();
  const int milliseconds = static_cast<int>((now - std::floor(now)) * 1000);
  printError(fmt::format("{}.{:03} Tovrek[{}] {}\n", localTime("%Y-%m-%d %H:%M:%S", now),
                         milliseconds, ::getpid(), text));
}

void printOut(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void printError(std::string_view text) {
  std::fflush(stdout);
  std::fwrite(text.data(), 1, text.size(), stderr);
  std::fflush(stderr);
}

}  // namespace tovrek
