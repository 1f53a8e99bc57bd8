#include "package/UnzippedCma.h"

#include <fmt/format.h>

#include "host/file_status.h"
#include "host/files.h"
#include "host/paths.h"
#include "package/app_links.h"
#include "package/archive_folder.h"

namespace tovrek {
namespace {

// Unpacks the archive into the folder, and sees to it that there is nothing but what may be walked.
bool unpack(const std::string& archive, const std::string& folder, const WrapperLogger* log,
            ErrorText* error) {
  return isUnzipped(runUnzip(archive, folder, log), error) &&
         refuseLinks(folder, std::nullopt, nullptr, error);
}

}  // namespace

std::shared_ptr<UnzippedCma> UnzippedCma::UnzippedIpaObjForInputFile(const std::string& path,
                                                                     TemporaryDirectory* tempDir,
                                                                     ErrorText* error,
                                                                     const WrapperLogger* log) {
  if (!isFolderGiven(tempDir, error)) return nullptr;
  if (!equalsIgnoringCase(pathExtension(path), "wex")) {
    fail(error, "Unknown input file.");
    return nullptr;
  }
  if (!tempDir->created() && !tempDir->Create(error)) return nullptr;
  std::shared_ptr<UnzippedCma> package = initWithwexipa(path, *tempDir);
  package->log_ = log;
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

bool UnzippedCma::Unzip(ErrorText* error) {
  if (!unpack(inputcma_, tempDir_, log_, error)) return false;
  const auto manifest = firstEntryWithExtension(tempDir_, "xml");
  if (!manifest) {
    return fail(error, fmt::format("Manifest xml cannot be foung in directory ({})", tempDir_));
  }
  manifestxmlPath_ = joinPath(tempDir_, *manifest);
  return true;
}

bool UnzippedCma::UnzipToGetIpaPath(ErrorText* error) {
  if (!unpack(inputcma_, tempDir_, log_, error)) return false;
  const auto ipa = firstEntryWithExtension(tempDir_, "ipa");
  if (!ipa) return fail(error, fmt::format("Ipa is not found in directory ({}) .", tempDir_));
  ipaName_ = *ipa;
  ipaPath_ = joinPath(tempDir_, *ipa);
  return true;
}

bool UnzippedCma::UnzipWithPayload(ErrorText* error) {
  if (!unpack(ipaPath_, tempDir_, log_, error)) return false;
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
