#include "converter/result_check.h"

#include <fmt/format.h>

#include "device/installation.h"
#include "host/clock.h"

namespace tovrek::converter {

bool checkResult(Run& run, ErrorText* error) {
  const ResultCheck check = run.context.settings.verifyResult;
  if (check == ResultCheck::kNone) return true;
  device::Findings findings;
  ErrorText reason;
  size_t refusals = 0;
  std::string first;
  const auto warn = [&](const std::string& text) {
    run.log().logWarning(text);
    if (error != nullptr) error->mention(text);
  };
  const auto refuse = [&](const std::string& text) {
    if (refusals++ == 0) first = text;
    warn("verifyResult: a device would refuse " + text);
  };
  if (!device::judgeApp(run.appPath, currentTime(), &findings, &reason,
                        signing::DigestsToCheck::kStrongest)) {
    refuse(fmt::format("{}: it cannot be read: {}", run.appPath, reason.text()));
  }
  for (const device::Finding& finding : findings) {
    const std::string text =
        fmt::format("{}: {} ({})", finding.place, finding.reason, finding.code);
    if (finding.isRefused) {
      refuse(text);
    } else {
      warn("verifyResult: a device takes with limits " + text);
    }
  }
  if (check != ResultCheck::kStrict || refusals == 0) return true;
  return fail(error, fmt::format("ERROR: A device would refuse the signed app. {}{}", first,
                                 refusals > 1 ? fmt::format(" [{} more]", refusals - 1) : ""));
}

}  // namespace tovrek::converter
