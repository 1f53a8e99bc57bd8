#include "package/UnzippedCma.h"

#include <fmt/format.h>

#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "package/app_links.h"
#include "package/archive_folder.h"

namespace tovrek {
namespace {

// Whether unzip, which ended with `status`, put nothing into `folder` but what may be walked.
bool isUnpacked(int status, const std::string& output, const std::string& folder,
                ErrorText* error) {
  if (status != 0) return fail(error, unzipFailure(output));
  return refuseLinks(folder, std::nullopt, nullptr, error);
}

bool unpack(const UnzippedCma& package, ErrorText* error) {
  std::string output;
  const int status = package.ExecuteTask(package.tempDir(), &output);
  return isUnpacked(status, output, package.tempDir(), error);
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

int UnzippedCma::ExecuteTask(const std::string& destination, std::string* output) const {
  ProgressStage stage(showsProgress_, "Unpacking");
  return runUnzip(inputcma_, destination, output, log_, &stage);
}

int UnzippedCma::ExecuteTaskIpa(const std::string& destination, std::string* output) const {
  ProgressStage stage(showsProgress_, "Unpacking");
  return runUnzip(ipaPath_, destination, output, log_, &stage);
}

bool UnzippedCma::Unzip(ErrorText* error) {
  if (!unpack(*this, error)) return false;
  const auto manifest = firstEntryWithExtension(tempDir_, "xml");
  if (!manifest) {
    return fail(error, fmt::format("Manifest xml cannot be foung in directory ({})", tempDir_));
  }
  manifestxmlPath_ = joinPath(tempDir_, *manifest);
  return true;
}

bool UnzippedCma::UnzipToGetIpaPath(ErrorText* error) {
  if (!unpack(*this, error)) return false;
  const auto ipa = firstEntryWithExtension(tempDir_, "ipa");
  if (!ipa) return fail(error, fmt::format("Ipa is not found in directory ({}) .", tempDir_));
  ipaName_ = *ipa;
  ipaPath_ = joinPath(tempDir_, *ipa);
  return true;
}

bool UnzippedCma::UnzipWithPayload(ErrorText* error) {
  std::string output;
  const int status = ExecuteTaskIpa(tempDir_, &output);
  if (!isUnpacked(status, output, tempDir_, error)) return false;
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
