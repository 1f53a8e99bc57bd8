// Signing, from the inside out. The code directory, the seal and the certificates are all the
// business of codesign; here is which code it signs, in which order, and what is asked of it.
#pragma once

#include <optional>
#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Removes the old signature and sees to resource rules. The entitlements path is not used.
bool verifyCodeSigningPrerequisites(const Run& run, const std::string& appPath,
                                    const std::string& entitlementPath, ErrorText* error);
bool CodeSignOrvaneDylib(const Run& run, const std::string& appPath, ErrorText* error);
// Whether the signature of the binary names a team.
bool verifyCodeSignatureForiOS8(const std::string& path);
// Signs all in the bundle's "Frameworks", inner code first; stops at the first failure.
bool CodeSignFrameworks(const Run& run, const std::string& bundlePath, ErrorText* error);
// Signs each app extension; one of an app to be wrapped is rebuilt first. Always true: a broken
// extension stops no run.
bool CodeSignExtensions(const Run& run, const std::string& appPath, ErrorText* error);
// Signs one bundle; without an entitlements file the existing entitlements are kept.
bool CodeSign(const Run& run, const std::string& bundlePath,
              const std::optional<std::string>& entitlementPath, ErrorText* error);
// As CodeSign, with requirements made for the new certificate in place of the old ones.
bool signAsNew(const Run& run, const std::string& bundlePath,
               const std::optional<std::string>& entitlementPath, ErrorText* error);
// Lets the fingerprint tool beside the program stamp the app's executable.
bool EmbedOpenSSLFipsFingerprint(const WrapperLogger& log, const std::string& appPath,
                                 ErrorText* error);
// Logs the reason, and how to get the developer tools when they are missing; false.
bool failSigning(const WrapperLogger& log, const char* reason);

}  // namespace tovrek::converter
