// The user's app: an .ipa archive unpacked into the scratch folder, or an .app folder used where
// it stands.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "host/ErrorText.h"
#include "host/process.h"
#include "log/WrapperLogger.h"
#include "package/AppBundle.h"
#include "package/TemporaryDirectory.h"

namespace tovrek {

// An .ipa is a zip archive with a top-level folder "Payload"; the app is the first entry of it
// whose extension is exactly "app".
class UnzippedIpa {
 public:
  // Unpacks an .ipa (creating `tempDir` when that was not done) or takes an .app as it stands;
  // the extension is compared without case. Null, with the reason, on failure; null without a
  // text when no folder object is given.
  static std::shared_ptr<UnzippedIpa> UnzippedIpaObjForInputFile(const std::string& path,
                                                                 TemporaryDirectory* tempDir,
                                                                 ErrorText* error,
                                                                 const WrapperLogger* log = nullptr,
                                                                 bool showsProgress = false);
  // Neither of these two unpacks anything.
  static std::shared_ptr<UnzippedIpa> initWithIpa(const std::string& path,
                                                  const TemporaryDirectory& tempDir);
  static std::shared_ptr<UnzippedIpa> initWithApp(const std::string& path,
                                                  const TemporaryDirectory& tempDir);

  // Unzips the input into `destination`: what unzip said, and its exit status (127 when it could
  // not be started).
  Outcome ExecuteTask(const std::string& destination) const;
  // Unpacks the input and finds the app in it.
  bool Unzip(ErrorText* error);
  // The app as a bundle; none, with a text, when there is none.
  static std::optional<AppBundle> appBundleForUnzippedIpa(const UnzippedIpa* ipa, ErrorText* error);

  const std::string& inputIpa() const { return inputIpa_; }
  const std::string& tempDir() const { return tempDir_; }
  const std::string& ipaName() const { return ipaName_; }
  const std::string& appPath() const { return appPath_; }
  const std::string& payloadDir() const { return payloadDir_; }

 private:
  UnzippedIpa() = default;
  const WrapperLogger* log_ = nullptr;
  bool showsProgress_ = false;
  std::string inputIpa_;
  std::string tempDir_;
  std::string ipaName_;
  std::string appPath_;
  std::string payloadDir_;
};

}  // namespace tovrek
