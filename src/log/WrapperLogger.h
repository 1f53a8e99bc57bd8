// The logger that every module reports through.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/printable.h"

namespace tovrek {

// Sends each message, as "[module] text", to the system log and to the end of a log file, each
// under its own level: 0 nothing, 1 errors, 2 also warnings, 3 also basic, 4 also detailed
// messages. A level outside 0 to 4 lets only errors through. Logging never fails the caller.
// Texts are taken as they are, format them with fmt before; but names in them may be chosen by
// strangers, so control characters are escaped, and line breaks unless the text has lines of its
// own.
class WrapperLogger {
 public:
  // Display level 2, file level 4. No file name means no file output.
  WrapperLogger(std::string moduleName, std::optional<std::string> logFilename);

  void logError(std::string_view text, LineBreaks breaks = LineBreaks::kEscaped) const;
  void logWarning(std::string_view text, LineBreaks breaks = LineBreaks::kEscaped) const;
  void logBasic(std::string_view text, LineBreaks breaks = LineBreaks::kEscaped) const;
  void logDetailed(std::string_view text, LineBreaks breaks = LineBreaks::kEscaped) const;

  void setLogDisplayLevel(int64_t level) { logDisplayLevel_ = level; }
  void setLogFileWriteLevel(int64_t level) { logFileWriteLevel_ = level; }
  void setLogFilename(std::optional<std::string> name) { logFilename_ = std::move(name); }
  int64_t getLogDisplayLevel() const { return logDisplayLevel_; }
  int64_t getLogFileWriteLevel() const { return logFileWriteLevel_; }
  const std::optional<std::string>& getLogFilename() const { return logFilename_; }

  // Appends one line, with a time stamp in front. The file is opened and closed for each entry.
  void writeEntryToLogfile(std::string_view entry) const;

 private:
  enum class Kind { kError = 1, kWarning = 2, kBasic = 3, kDetailed = 4 };
  static bool passes(int64_t level, Kind kind);
  void log(Kind kind, std::string_view text, LineBreaks breaks) const;

  std::optional<std::string> logFilename_;
  std::string moduleName_;
  int64_t logDisplayLevel_ = 2;
  int64_t logFileWriteLevel_ = 4;
};

}  // namespace tovrek
