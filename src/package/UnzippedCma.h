// A finished .wex package, unpacked into the scratch folder.
#pragma once

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/ErrorText.h"
#include "host/process.h"
#include "log/WrapperLogger.h"
#include "package/TemporaryDirectory.h"

namespace tovrek {

// A .wex is a zip archive whose root holds the manifest (the first entry whose extension is
// exactly "xml") and the signed app (the first entry whose extension is exactly "ipa"). The inner
// .ipa is unpacked into the same folder as the package.
class UnzippedCma {
 public:
  // Unpacks the package and its .ipa, creating `tempDir` when that was not done. Null, with the
  // reason, on failure; null without a text when no folder object is given.
  static std::shared_ptr<UnzippedCma> UnzippedIpaObjForInputFile(const std::string& path,
                                                                 TemporaryDirectory* tempDir,
                                                                 ErrorText* error,
                                                                 const WrapperLogger* log = nullptr,
                                                                 bool showsProgress = false);
  // Neither of these two unpacks anything.
  static std::shared_ptr<UnzippedCma> initWithCma(const std::string& path,
                                                  const TemporaryDirectory& tempDir);
  static std::shared_ptr<UnzippedCma> initWithwexipa(const std::string& path,
                                                     const TemporaryDirectory& tempDir);

  // Unzip the package, or its .ipa, into `destination`: what unzip said, and its exit status (127
  // when it could not be started).
  Outcome ExecuteTask(const std::string& destination) const;
  Outcome ExecuteTaskIpa(const std::string& destination) const;

  // Unpacks the package and finds its manifest.
  bool Unzip(ErrorText* error);
  // Unpacks the package and finds its .ipa.
  bool UnzipToGetIpaPath(ErrorText* error);
  // Unpacks the .ipa, finds the app in it and sets isSDKApp.
  bool UnzipWithPayload(ErrorText* error);

  const std::string& inputcma() const { return inputcma_; }
  const std::string& cmaName() const { return cmaName_; }
  const std::string& payloadDir() const { return payloadDir_; }
  const std::string& manifestxmlPath() const { return manifestxmlPath_; }
  const std::string& ipaPath() const { return ipaPath_; }
  const std::string& ipaName() const { return ipaName_; }
  const std::string& appPath() const { return appPath_; }
  // The app lacks the management library: it was built against the SDK instead of wrapped.
  bool isSDKApp() const { return isSDKApp_; }
  const std::string& tempDir() const { return tempDir_; }
  // What unzip complains of goes to this log too, which has to outlive the object.
  void setLog(const WrapperLogger* log) { log_ = log; }
  // Variables for the unzip of the package.
  void setEnvironment(std::vector<std::pair<std::string, std::string>> environment) {
    environment_ = std::move(environment);
  }
  void setIpaPath(std::string path) { ipaPath_ = std::move(path); }
  void setIpaName(std::string name) { ipaName_ = std::move(name); }

 private:
  UnzippedCma() = default;
  const WrapperLogger* log_ = nullptr;
  bool showsProgress_ = false;
  std::vector<std::pair<std::string, std::string>> environment_;
  std::string inputcma_;
  std::string cmaName_;
  std::string payloadDir_;
  std::string manifestxmlPath_;
  std::string ipaPath_;
  std::string ipaName_;
  std::string appPath_;
  bool isSDKApp_ = false;
  std::string tempDir_;
};

}  // namespace tovrek
