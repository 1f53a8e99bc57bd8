// Packs a signed app bundle into an .ipa with the developer tools' packager.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek {

struct XcrunHelper {
  std::optional<std::string> ipaFilename;  // carried for the caller; the run does not read it
  std::optional<std::string> appBundlePath;
  std::optional<std::string> outPackagePath;
  std::optional<std::string> codeSignCert;
  std::optional<std::string> embeddedProfilePath;
  const WrapperLogger* logger = nullptr;  // carried likewise

  // Runs the packager. Its status is only logged: the run succeeds exactly when a plain file
  // stands at outPackagePath afterwards. The argument list ends at the first field not set.
  bool StartXCRun(const WrapperLogger& log, ErrorText* error) const;

  // The path with all links resolved; none when an item of it is missing.
  static std::optional<std::string> pathResolved(const std::string& path);
};

}  // namespace tovrek
