#include "converter/input.h"

#include <fmt/format.h>

#include "converter/common.h"
#include "host/files.h"

namespace tovrek::converter {

std::shared_ptr<UnzippedIpa> unzipIpa(const std::optional<std::string>& inputPath,
                                      std::shared_ptr<TemporaryDirectory>* tempDir,
                                      ErrorText* error, const WrapperLogger& log) {
  fail(error, "Invalid input");
  if (!inputPath || tempDir == nullptr) return nullptr;
  if (!*tempDir) {
    *tempDir = std::make_shared<TemporaryDirectory>();
    if (!(*tempDir)->Create(error)) return nullptr;
    logLeftovers(log, **tempDir);
  }
  // Unpacking clears the slot that it is given; ours keeps its text after a success.
  ErrorText reason;
  auto ipa = UnzippedIpa::UnzippedIpaObjForInputFile(*inputPath, tempDir->get(), &reason, &log);
  if (!ipa && error != nullptr) *error = reason;
  return ipa;
}

bool refuseLinksOutside(const WrapperLogger& log, const std::string& folder, ErrorText* error) {
  std::optional<std::string> link;
  if (ErrorText reason; !findLinkLeadingOutside(folder, &link, &reason)) {
    log.logError(reason.text());
    return fail(error, reason.text());
  }
  if (!link) return true;
  const std::string text = fmt::format("The input holds a link that leads out of it: {}", *link);
  log.logError(text);
  return fail(error, text);
}

namespace {

// Every later step would take such an app for one without names, and complain of other files.
bool refuseUnreadableApp(const Run& run, ErrorText* error) {
  ErrorText reason;
  if (run.bundle->infoPlistIsReadable(&reason)) return true;
  run.log().logError(reason.text());
  return fail(error, reason.text());
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
    input.ipa = unzipIpa(run.request.inputFile, &input.directory, error, run.log());
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
  run.bundle = AppBundle::open(run.appPath);
  if (run.bundle) return refuseUnreadableApp(run, error);
  run.log().logError("Failed to get the input app file NSBundle object.");
  return fail(error, "Failed to get the input app file NSBundle object.");
}

bool openAppFolder(Run& run, ErrorText* error) {
  run.appPath = run.request.inputFile.value_or("");
  run.bundle = AppBundle::open(run.appPath);
  if (run.bundle) return refuseUnreadableApp(run, error);
  run.log().logError("Failed to get the input app NSBundle object.");
  return false;
}

bool unpackPackage(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Unzipping...");
  run.input.directory = std::make_shared<TemporaryDirectory>();
  if (!run.input.directory->Create(error)) return false;
  logLeftovers(run.log(), *run.input.directory);
  run.package = UnzippedCma::UnzippedIpaObjForInputFile(
      run.request.inputFile.value_or(""), run.input.directory.get(), error, &run.log());
  if (!run.package) return false;
  run.appPath = run.package->appPath();
  run.bundle = AppBundle::open(run.appPath);
  if (run.bundle) return refuseUnreadableApp(run, error);
  run.log().logError("Failed to get the input app NSBundle object.");
  return true;
}

bool refuseLinksOutOfApp(Run& run, ErrorText* error) {
  return refuseLinksOutside(run.log(), run.appPath, error);
}

bool refuseLinksOutOfPackage(Run& run, ErrorText* error) {
  return refuseLinksOutside(run.log(), run.scratch(), error);
}

bool emptyPackageFolder(Run& run, ErrorText* error) {
  ErrorText reason;
  const std::string& folder = run.packageDir();
  if (removeItem(folder, &reason) && createDirectories(folder, &reason)) return true;
  return fail(
      error, fmt::format("Failed to empty the package folder {}. Error:{}", folder, reason.text()));
}

}  // namespace tovrek::converter
