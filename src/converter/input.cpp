#include "converter/input.h"

#include <fmt/format.h>

#include <optional>
#include <vector>

#include "converter/common.h"
#include "converter/steps.h"
#include "host/ItemPath.h"
#include "host/files.h"
#include "host/printable.h"
#include "package/app_links.h"

namespace tovrek::converter {

std::shared_ptr<UnzippedIpa> unzipIpa(const std::optional<std::string>& inputPath,
                                      std::shared_ptr<TemporaryDirectory>* tempDir,
                                      ErrorText* error, const RunContext& context) {
  fail(error, "Invalid input");
  if (!inputPath || tempDir == nullptr) return nullptr;
  const WrapperLogger& log = context.loggers.toolkit;
  if (!*tempDir) {
    *tempDir = std::make_shared<TemporaryDirectory>();
    if (!(*tempDir)->Create(error)) return nullptr;
    logLeftovers(log, **tempDir);
  }
  // Unpacking clears the slot that it is given; ours keeps its text after a success.
  ErrorText reason;
  auto ipa = UnzippedIpa::UnzippedIpaObjForInputFile(*inputPath, tempDir->get(), &reason, &log,
                                                     context.showsProgress);
  if (!ipa && error != nullptr) *error = reason;
  return ipa;
}

namespace {

// Every later step would take such an app for one without names, and complain of other files.
bool refuseUnreadableApp(const Run& run, ErrorText* error) {
  ErrorText reason;
  if (run.bundle->infoPlistIsReadable(&reason)) return true;
  run.log().logError(reason.text());
  return fail(error, reason.text());
}

// The app's place in the scratch folder; none for an app that is used where it stands.
std::optional<std::string> placeInScratch(const Run& run) {
  const std::string scratch = run.input.directory ? run.scratch() + "/" : "";
  if (scratch.empty() || !run.appPath.starts_with(scratch)) return std::nullopt;
  return run.appPath.substr(scratch.size());
}

bool judgeInput(const Run& run, std::vector<std::string>* dangling, ErrorText* error) {
  const auto place = placeInScratch(run);
  const bool isFolder = !run.package && !place;  // an app used where it stands
  const auto app = run.package ? std::nullopt : std::optional(place.value_or(""));
  ErrorText reason;
  if (refuseLinks(isFolder ? run.appPath : run.scratch(), app, dangling, &reason)) return true;
  run.log().logError(reason.text());
  return fail(error, reason.text());
}

// Before anything in the app is looked at.
bool takeApp(Run& run, ErrorText* error) {
  guardFolder(run.appPath);
  std::vector<std::string> dangling;
  if (!judgeInput(run, &dangling, error)) return false;
  for (const std::string& link : dangling) {
    run.log().logWarning("The app holds a link whose target does not exist: " + printable(link));
  }
  run.bundle = AppBundle::open(run.appPath);
  return true;
}

}  // namespace

void logLeftovers(const WrapperLogger& log, const TemporaryDirectory& directory) {
  for (const std::string& folder : directory.leftovers()) {
    log.logBasic("Removed what an interrupted run had left: " + folder);
  }
}

bool unpackApp(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Unzipping...");
  UnpackedInput& input = run.input;
  if (!input.ipa) {
    input.directory.reset();
    input.ipa = unzipIpa(run.request.inputFile, &input.directory, error, run.context);
    if (!input.ipa) return false;
  }
  // An .app needs no folder to be unpacked.
  if (!input.directory) input.directory = std::make_shared<TemporaryDirectory>();
  if (!input.directory->created()) {
    if (!input.directory->Create(error)) return false;
    logLeftovers(run.log(), *input.directory);
  }

  run.appPath = input.ipa->appPath();
  run.payloadDir = input.ipa->payloadDir();
  if (!takeApp(run, error)) return false;
  if (run.bundle) return refuseUnreadableApp(run, error);
  run.log().logError("Failed to get the input app file NSBundle object.");
  return fail(error, "Failed to get the input app file NSBundle object.");
}

bool openAppFolder(Run& run, ErrorText* error) {
  run.appPath = run.request.inputFile.value_or("");
  if (isDirectory(run.appPath) && !takeApp(run, error)) return false;
  if (run.bundle) return refuseUnreadableApp(run, error);
  run.log().logError("Failed to get the input app NSBundle object.");
  return false;
}

bool unpackPackage(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Unzipping...");
  run.input.directory = std::make_shared<TemporaryDirectory>();
  if (!run.input.directory->Create(error)) return false;
  logLeftovers(run.log(), *run.input.directory);
  run.package = UnzippedCma::UnzippedIpaObjForInputFile(run.request.inputFile.value_or(""),
                                                        run.input.directory.get(), error,
                                                        &run.log(), run.context.showsProgress);
  if (!run.package) return false;
  run.appPath = run.package->appPath();
  run.bundle = AppBundle::open(run.appPath);
  if (run.bundle) return refuseUnreadableApp(run, error);
  run.log().logError("Failed to get the input app NSBundle object.");
  return true;
}

bool refuseBadLinks(Run& run, ErrorText* error) {
  return judgeInput(run, nullptr, error);
}

bool emptyPackageFolder(Run& run, ErrorText* error) {
  ErrorText reason;
  const std::string& folder = run.packageDir();
  if (removeItem(folder, &reason) && createDirectories(folder, &reason)) return true;
  return fail(
      error, fmt::format("Failed to empty the package folder {}. Error:{}", folder, reason.text()));
}

}  // namespace tovrek::converter
