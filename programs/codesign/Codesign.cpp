#include "programs/codesign/Codesign.h"

#include <fmt/format.h>

#include <algorithm>

namespace tovrek::codesign {
namespace {

int runOn(const std::string& path, const Options& options, const Streams& streams) {
  switch (options.operation) {
    case Operation::kSign:
      return signPath(path, options, streams);
    case Operation::kDisplay:
      return displayPath(path, options, streams);
    case Operation::kVerify:
      return verifyPath(path, options, streams);
    case Operation::kRemove:
      return removeFrom(path, options, streams);
    case Operation::kNone:
      break;
  }
  return kUsageError;
}

}  // namespace

int failPath(const std::string& path, std::string_view text, const Streams& streams) {
  streams.error(fmt::format("{}: {}\n", path, text));
  return kFailure;
}

int run(const Arguments& arguments, const Streams& streams) {
  Options options;
  ErrorText error;
  if (!Options::parse(arguments.words, &options, &error)) {
    streams.error(fmt::format("codesign: {}\n{}", error.text(), kUsage));
    return kUsageError;
  }
  if (options.help) {
    streams.out(std::string(kUsage) + kHelp);
    return kSuccess;
  }
  int status = kSuccess;
  for (const std::string& path : options.paths) {
    status = std::max(status, runOn(path, options, streams));
    if (status != kSuccess && !options.goOn) break;
  }
  return status;
}

}  // namespace tovrek::codesign
