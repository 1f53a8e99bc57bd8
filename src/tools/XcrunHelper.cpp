#include "tools/XcrunHelper.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <vector>

#include "host/file_status.h"
#include "host/files.h"
#include "host/process.h"
#include "log/SystemLog.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

// The packager's arguments, up to the first value that is not set.
std::vector<std::string> packagerArguments(const XcrunHelper& helper) {
  const std::vector<std::optional<std::string>> values = {"-sdk",
                                                          "iphoneos",
                                                          "PackageApplication",
                                                          helper.appBundlePath,
                                                          "-o",
                                                          helper.outPackagePath,
                                                          "--sign",
                                                          helper.codeSignCert,
                                                          "--embed",
                                                          helper.embeddedProfilePath,
                                                          "--verbose"};
  std::vector<std::string> arguments;
  for (const auto& value : values) {
    if (!value) break;
    arguments.push_back(*value);
  }
  return arguments;
}

}  // namespace

bool XcrunHelper::StartXCRun(const WrapperLogger& log, ErrorText* error) const {
  const std::vector<std::string> arguments = packagerArguments(*this);
  systemLog(fmt::format("(\n    {}\n)", fmt::join(arguments, ",\n    ")), LineBreaks::kKept);

  const std::string package = outPackagePath.value_or("");
  const auto before = statusOf(package);
  Command command;
  command.argv = {"/usr/bin/xcrun"};
  command.argv.insert(command.argv.end(), arguments.begin(), arguments.end());
  Outcome outcome;
  ErrorText reason;
  if (!runProcess(command, &outcome, &reason)) {
    return failNotStarted(error, reason);
  }
  if (outcome.status != 0) {
    systemLog(fmt::format("xcrun returns code {}. output: {}", outcome.status, outcome.output),
              LineBreaks::kKept);
  }

  // An older one that stands there yet is not what was wanted.
  const auto after = statusOf(package);
  const bool isOld = outcome.status != 0 && before && after && before->identity == after->identity;
  if (isOld || !isPlainFile(package)) {
    return fail(error, fmt::format("Failed to generate this file: {}", package));
  }
  log.logDetailed(fmt::format("Generated output ipa file at: {}", package));
  return true;
}

}  // namespace tovrek
