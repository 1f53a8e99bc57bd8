#include "log/TKProgressor.h"

#include <fmt/format.h>

#include "log/SystemLog.h"

namespace tovrek {

void CLProgressor::SetProgress(std::string_view stage) {
  constexpr std::string_view kSeparator = "------------------------------";
  // Stage texts that bring their own dots show six of them.
  const std::string banner = fmt::format("\n\n{}...\n{}\n", stage, kSeparator);
  printOut(banner);
  logger_.logBasic(banner, LineBreaks::kKept);
}

}  // namespace tovrek
