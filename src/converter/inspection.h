// What an app holds: what its executable loads and is signed with, and which of our own components
// came with it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "context/RunContext.h"
#include "host/ErrorText.h"
#include "package/AppBundle.h"

namespace tovrek::converter {

struct Run;

// What an app bundle holds of our own components.
struct BundleInspection {
  bool hasWEXSDKFramework = false;
  bool hasOpenSSLFIPSModule = false;
  bool hasOrvaneDylib = false;
  bool hasMAMSDKFrameworks = false;
  bool hasDualModeFrameworks = false;
  bool hasDefaultPoliciesXML = false;
  std::string debugString;  // the report, as also written to the console

  // Whether the SDK's crypto module checks the executable's fingerprint.
  bool hasFingerprint() const { return hasWEXSDKFramework && hasOpenSSLFIPSModule; }
};

// Names of SDK frameworks that an executable links, in a fixed order.
using FrameworkNames = std::vector<std::string>;

// Reports what the bundle holds. The report shows two of the flags as they were on entry. False
// when a tool that is asked could not be run.
bool checkIfAppBundle(const RunContext& context, const AppBundle& bundle,
                      BundleInspection* inspection, ErrorText* error);
// The next two have no value when otool could not be run; the slot tells it.
// True when the executable already loads our dylib, with the refusal in the slot.
std::optional<bool> verifyIfApplicationIsAlreadyWrapped(const WrapperLogger& log,
                                                        const AppBundle& bundle, ErrorText* error);
// False when the executable carries the SDK's launch hook. For programs that look at apps only.
bool verifyIfAppBundleIsAlreadyWrapped(const WrapperLogger& log, const AppBundle& bundle,
                                       ErrorText* error);
// False when no slice of the executable is unencrypted.
std::optional<bool> verifyIfApplicationIsAppStoreApp(const WrapperLogger& log,
                                                     const AppBundle& bundle, ErrorText* error);
// These fill the slot only when otool could not be run.
bool verifyIfApplicationIsLinkedWithStaticWEXSDK(const WrapperLogger& log, const AppBundle& bundle,
                                                 ErrorText* error);
// `found` (may be null) receives each SDK framework that the executable names.
bool verifyIfApplicationIsLinkedWithDylibWEXSDK(const WrapperLogger& log, const AppBundle& bundle,
                                                FrameworkNames* found, ErrorText* error);
bool verifyIfApplicationIsLinkedWithMDKSDK(const WrapperLogger& log, const AppBundle& bundle,
                                           FrameworkNames* found, ErrorText* error);
// False, with a warning in the slot, for apps that ship ".dll" files.
bool verifyIfItNotANativeiOSApp(const std::string& appPath, ErrorText* error);
bool doesApplicationSupportAdobeAir(const std::string& appPath, ErrorText* error);

// Step: keeps what the app holds in the run.
bool inspectApp(Run& run, ErrorText* error);

}  // namespace tovrek::converter
