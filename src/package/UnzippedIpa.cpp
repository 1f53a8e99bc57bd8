#include "package/UnzippedIpa.h"

#include "host/paths.h"
#include "package/archive_folder.h"

namespace tovrek {

std::shared_ptr<UnzippedIpa> UnzippedIpa::UnzippedIpaObjForInputFile(const std::string& path,
                                                                     TemporaryDirectory* tempDir,
                                                                     ErrorText* error,
                                                                     const WrapperLogger* log,
                                                                     bool showsProgress) {
  if (!isFolderGiven(tempDir, error)) return nullptr;
  const std::string extension = pathExtension(path);
  if (equalsIgnoringCase(extension, "app")) return initWithApp(path, *tempDir);
  if (!equalsIgnoringCase(extension, "ipa")) {
    fail(error, "Unknown input file.");
    return nullptr;
  }
  if (!tempDir->created() && !tempDir->Create(error)) return nullptr;
  std::shared_ptr<UnzippedIpa> ipa = initWithIpa(path, *tempDir);
  ipa->log_ = log;
  ipa->showsProgress_ = showsProgress;
  return ipa->Unzip(error) ? ipa : nullptr;
}

std::shared_ptr<UnzippedIpa> UnzippedIpa::initWithIpa(const std::string& path,
                                                      const TemporaryDirectory& tempDir) {
  const std::shared_ptr<UnzippedIpa> ipa(new UnzippedIpa());
  ipa->inputIpa_ = path;
  ipa->tempDir_ = tempDir.tempDir();
  ipa->ipaName_ = lastPathComponent(path);
  return ipa;
}

std::shared_ptr<UnzippedIpa> UnzippedIpa::initWithApp(const std::string& path,
                                                      const TemporaryDirectory& tempDir) {
  const std::shared_ptr<UnzippedIpa> app(new UnzippedIpa());
  app->appPath_ = path;
  app->tempDir_ = tempDir.tempDir();
  return app;
}

Outcome UnzippedIpa::ExecuteTask(const std::string& destination) const {
  ProgressStage stage(showsProgress_, "Unpacking");
  return runUnzip(inputIpa_, destination, log_, &stage);
}

bool UnzippedIpa::Unzip(ErrorText* error) {
  if (!isUnzipped(ExecuteTask(tempDir_), error)) return false;
  const auto app = findPayloadApp(tempDir_, &payloadDir_, error);
  if (!app) return false;
  appPath_ = *app;
  return true;
}

std::optional<AppBundle> UnzippedIpa::appBundleForUnzippedIpa(const UnzippedIpa* ipa,
                                                              ErrorText* error) {
  auto bundle = ipa != nullptr ? AppBundle::open(ipa->appPath_) : std::nullopt;
  if (!bundle) fail(error, "Failed to get the input ipa file NSBundle object.");
  return bundle;
}

}  // namespace tovrek
