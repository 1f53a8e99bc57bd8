#include "log/WrapperLogger.h"

#include <fmt/format.h>

#include "host/clock.h"
#include "host/log_file.h"
#include "log/SystemLog.h"

namespace tovrek {

WrapperLogger::WrapperLogger(std::string moduleName, std::optional<std::string> logFilename)
    : logFilename_(std::move(logFilename)), moduleName_(std::move(moduleName)) {}

void WrapperLogger::logError(std::string_view text, LineBreaks breaks) const {
  log(Kind::kError, text, breaks);
}
void WrapperLogger::logWarning(std::string_view text, LineBreaks breaks) const {
  log(Kind::kWarning, text, breaks);
}
void WrapperLogger::logBasic(std::string_view text, LineBreaks breaks) const {
  log(Kind::kBasic, text, breaks);
}
void WrapperLogger::logDetailed(std::string_view text, LineBreaks breaks) const {
  log(Kind::kDetailed, text, breaks);
}

bool WrapperLogger::passes(int64_t level, Kind kind) {
  // Errors pass at any level but 0, also at one outside the range.
  if (kind == Kind::kError) return level != 0;
  return level >= static_cast<int64_t>(kind) && level <= 4;
}

void WrapperLogger::log(Kind kind, std::string_view text, LineBreaks breaks) const {
  const bool displayed = passes(logDisplayLevel_, kind);
  const bool written = passes(logFileWriteLevel_, kind) && logFilename_.has_value();
  if (!displayed && !written) return;
  const std::string entry = fmt::format("[{}] {}", moduleName_, printable(text, breaks));
  if (displayed) systemLog(entry, LineBreaks::kKept);
  if (written) writeEntryToLogfile(entry);
}

void WrapperLogger::writeEntryToLogfile(std::string_view entry) const {
  if (!logFilename_) return;
  const std::string line =
      fmt::format("{} {}\n", localTime("%Y-%m-%d %H:%M:%S", currentTime()), entry);
  ErrorText reason;
  if (appendToLog(*logFilename_, line, &reason)) return;
  systemLog(
      fmt::format("ERROR: failed to write file at {}, error is {}", *logFilename_, reason.text()));
}

}  // namespace tovrek
