#include "log/SystemLog.h"

#include <fmt/format.h>

#include <cmath>

#include "host/clock.h"
#include "host/host_info.h"

namespace tovrek {

void systemLog(std::string_view text, LineBreaks breaks) {
  const double now = currentTime();
  const int milliseconds = static_cast<int>((now - std::floor(now)) * 1000);
  printError(fmt::format("{}.{:03} Tovrek[{}] {}\n", localTime("%Y-%m-%d %H:%M:%S", now),
                         milliseconds, processId(), printable(text, breaks)));
}

}  // namespace tovrek
