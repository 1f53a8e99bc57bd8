#include "engine/lipo_runner.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

#include "engine/engine_text.h"
#include "host/files.h"
#include "host/paths.h"
#include "host/process.h"
#include "macho/ArchName.h"

namespace tovrek {
namespace {

[[noreturn]] void failToRun(const Outcome& outcome) {
  throw macho::EngineText(fmt::format("Failed to execute lipo with exit code: {}", outcome.status),
                          outcome.said());
}

Outcome runLipo(std::vector<std::string> arguments, StandardError standardError) {
  Command command;
  command.argv = {"/usr/bin/lipo"};
  command.argv.insert(command.argv.end(), std::move_iterator(arguments.begin()),
                      std::move_iterator(arguments.end()));
  command.standardError = standardError;
  Outcome outcome = runQuietly(command);
  // An architecture must not be dropped, nor a file be taken for universal, for want of an answer.
  if (outcome.signalled || outcome.status == kNotStarted) failToRun(outcome);
  return outcome;
}

// Users only hear that there is no slice, or no executable, in the end.
bool failTold(const WrapperLogger& logger, const std::string& reason, ErrorText* error) {
  if (!reason.empty()) logger.logError(reason, LineBreaks::kKept);
  return fail(error, reason);
}

bool succeeded(const Outcome& outcome, const WrapperLogger& logger, ErrorText* error) {
  return outcome.status == 0 || failTold(logger, trimmed(outcome.errorOutput), error);
}

bool copyThinFile(const std::string& path, const std::string& slice, const WrapperLogger& logger,
                  ErrorText* error) {
  ErrorText reason;
  const auto source = realPath(path);
  // A slice left behind by a broken run must not be taken for this one, and an executable that
  // is a link must not be edited through its copy.
  const bool cleared = !itemExistsNoFollow(slice) || removeItem(slice, &reason);
  if (cleared && source && copyItem(*source, slice, &reason)) return true;
  return failTold(logger, slice + ": " + (source ? reason.text() : "there is no executable"),
                  error);
}

}  // namespace

std::string sliceFileName(const std::string& path, std::string_view arch) {
  return path + "-" + std::string(arch);
}

bool IsFatBinary(const std::string& path) {
  const Outcome outcome = runLipo({"-info", path}, StandardError::kMergeIntoOutput);
  return outcome.output.find("Non-fat file") == std::string::npos;
}

bool ExtractArchsFromFatBinary(const std::string& path, bool isFat, ArchPresence* present,
                               const WrapperLogger& logger, ErrorText* error) {
  std::optional<Outcome> complaint;
  for (size_t i = 0; i < kDeviceArchs.size(); ++i) {
    Outcome outcome =
        runLipo({path, "-verify_arch", std::string(kDeviceArchs[i])}, StandardError::kCapture);
    (*present)[i] = outcome.status == 0;
    if (!outcome.errorOutput.empty()) complaint = std::move(outcome);
  }
  // A plain "no" is silent. What lipo cannot read at all fails further on, by its number.
  if (complaint && complaint->status != 0 && std::ranges::find(*present, true) != present->end()) {
    failToRun(*complaint);
  }
  for (size_t i = 0; i < kDeviceArchs.size(); ++i) {
    if (!(*present)[i]) continue;
    const std::string arch(kDeviceArchs[i]);
    const std::string slice = sliceFileName(path, arch);
    const bool made =
        isFat ? succeeded(runLipo({path, "-thin", arch, "-output", slice}, StandardError::kCapture),
                          logger, error)
              : copyThinFile(path, slice, logger, error);
    if (!made) return false;
  }
  return true;
}

bool CreateFatBinaryFromArchs(const std::string& path, const ArchPresence& present,
                              const WrapperLogger& logger, ErrorText* error) {
  removeItem(path);
  std::vector<std::string> slices;
  for (size_t i = 0; i < kDeviceArchs.size(); ++i) {
    if (present[i]) slices.push_back(sliceFileName(path, kDeviceArchs[i]));
  }
  std::vector<std::string> arguments = slices;
  arguments.insert(arguments.end(), {"-create", "-output", path});
  const Outcome outcome = runLipo(std::move(arguments), StandardError::kCapture);
  if (outcome.errorOutput.find(macho::kUnknownArchFlag) != std::string::npos) {
    return true;
  }
  for (const std::string& slice : slices) {
    // One that stays would be packed with the app.
    ErrorText reason;
    if (itemExistsNoFollow(slice) && !removeItem(slice, &reason) && !removeItem(slice, &reason)) {
      macho::throwf("{} could not be removed: {}", slice, reason.text());
    }
  }
  return succeeded(outcome, logger, error);
}

}  // namespace tovrek
