#include "converter/otool_questions.h"

#include <fmt/format.h>

#include "converter/common.h"
#include "log/SystemLog.h"

namespace tovrek::converter {

std::string otoolCommand(std::string_view option, const AppBundle& bundle, std::string_view rest) {
  return fmt::format("/usr/bin/otool {} \"{}\"{}", option,
                     escapeExecutableString(shown(bundle.executablePath())), rest);
}

std::optional<Outcome> runOnExecutable(const WrapperLogger& log, const AppBundle& bundle,
                                       const std::string& commandLine) {
  systemLog(shown(bundle.executablePath()));
  return runShell(log, commandLine);
}

bool gaveAnswer(const std::optional<Outcome>& outcome, std::string_view tag, ErrorText* error) {
  constexpr int kShellCannotRun = 126;  // this and above: not found, or ended by a signal
  if (!outcome) return failWithStatus(error, tag, kNotStarted);
  const bool answered = !outcome->signalled && outcome->status < kShellCannotRun;
  return answered || failWithStatus(error, tag, outcome->status);
}

std::optional<std::string> successfulOutput(const std::optional<Outcome>& outcome) {
  if (!outcome || outcome->status != 0 || outcome->output.empty()) return std::nullopt;
  return outcome->output;
}

}  // namespace tovrek::converter
