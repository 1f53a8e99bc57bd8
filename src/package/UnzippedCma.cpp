#include "package/UnzippedCma.h"

#include <fmt/format.h>

#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "package/app_links.h"
#include "package/archive_folder.h"

namespace tovrek {
namespace {

// Whether an archive was unpacked into the folder, with nothing but what may be walked.
bool isUnpacked(const Outcome& outcome, const std::string& folder, ErrorText* error) {
  return isUnzipped(outcome, error) && refuseLinks(folder, std::nullopt, nullptr, error);
}

}  // namespace

std::shared_ptr<UnzippedCma> UnzippedCma::UnzippedIpaObjForInputFile(const std::string& path,
                                                                     TemporaryDirectory* tempDir,
                                                                     ErrorText* error,
                                                                     const WrapperLogger* log,
                                                                     bool showsProgress) {
  if (!isFolderGiven(tempDir, error)) return nullptr;
  if (!equalsIgnoringCase(pathExtension(path), "wex")) {
    fail(error, "Unknown input file.");
    return nullptr;
  }
  if (!tempDir->created() && !tempDir->Create(error)) return nullptr;
  std::shared_ptr<UnzippedCma> package = initWithwexipa(path, *tempDir);
  package->log_ = log;
  package->showsProgress_ = showsProgress;
  const bool unpacked = package->UnzipToGetIpaPath(error) && package->UnzipWithPayload(error);
  return unpacked ? package : nullptr;
}

std::shared_ptr<UnzippedCma> UnzippedCma::initWithCma(const std::string& path,
                                                      const TemporaryDirectory& tempDir) {
  const std::shared_ptr<UnzippedCma> package(new UnzippedCma());
  package->inputcma_ = path;
  package->cmaName_ = lastPathComponent(path);
  package->tempDir_ = tempDir.tempDir();
  return package;
}

std::shared_ptr<UnzippedCma> UnzippedCma::initWithwexipa(const std::string& path,
                                                         const TemporaryDirectory& tempDir) {
  return initWithCma(path, tempDir);
}

Outcome UnzippedCma::ExecuteTask(const std::string& destination) const {
  ProgressStage stage(showsProgress_, "Unpacking");
  return runUnzip(inputcma_, destination, log_, &stage, environment_);
}

Outcome UnzippedCma::ExecuteTaskIpa(const std::string& destination) const {
  ProgressStage stage(showsProgress_, "Unpacking");
  return runUnzip(ipaPath_, destination, log_, &stage);
}

bool UnzippedCma::Unzip(ErrorText* error) {
  if (!isUnpacked(ExecuteTask(tempDir_), tempDir_, error)) return false;
  const auto manifest = firstEntryWithExtension(tempDir_, "xml");
  if (!manifest) {
    return fail(error, fmt::format("Manifest xml cannot be foung in directory ({})", tempDir_));
  }
  manifestxmlPath_ = joinPath(tempDir_, *manifest);
  return true;
}

bool UnzippedCma::UnzipToGetIpaPath(ErrorText* error) {
  if (!isUnpacked(ExecuteTask(tempDir_), tempDir_, error)) return false;
  const auto ipa = firstEntryWithExtension(tempDir_, "ipa");
  if (!ipa) return fail(error, fmt::format("Ipa is not found in directory ({}) .", tempDir_));
  ipaName_ = *ipa;
  ipaPath_ = joinPath(tempDir_, *ipa);
  return true;
}

bool UnzippedCma::UnzipWithPayload(ErrorText* error) {
  if (!isUnpacked(ExecuteTaskIpa(tempDir_), tempDir_, error)) return false;
  const auto app = findPayloadApp(tempDir_, &payloadDir_, error);
  if (!app) return false;
  appPath_ = *app;
  const std::string library =
      fmt::format("{}/{}", appPath_, "OrvaneDylib.bundle/OrvaneDylib.dylib");
  ErrorText reason;
  const auto wrapped = isThere(library, &reason);
  if (!wrapped) return fail(error, fmt::format("{}: {}", library, reason.text()));
  isSDKApp_ = !*wrapped;
  return true;
}

}  // namespace tovrek
