#include "programs/codesign/Codesign.h"

#include <fmt/format.h>

#include <algorithm>

#include "host/ItemPath.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/printable.h"
#include "signing/CodeObject.h"

namespace tovrek::codesign {
namespace {

// Code of strangers: nothing in its bundle is read or replaced through a link.
void guardCode(const std::string& path) {
  const std::string real = realPath(path).value_or("");
  const std::string folder = isDirectory(real) ? real : deletingLastPathComponent(real);
  if (itemExistsNoFollow(joinPath(folder, signing::kInfoPlistFile))) guardFolder(folder);
}

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
  streams.error(fmt::format("{}: {}\n", printable(path), text));
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
    guardCode(path);
    status = std::max(status, runOn(path, options, streams));
    if (status != kSuccess && !options.goOn) break;
  }
  return status;
}

}  // namespace tovrek::codesign
