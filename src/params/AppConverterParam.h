// Everything that one run needs to know.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek {

class TemporaryDirectory;
class UnzippedIpa;

// What the user asked for and the front end derived from it. A text that was not given is none,
// which differs from one given as the empty text.
struct ConverterSettings {
  bool isSDK = false;         // the app already contains the SDK
  bool isUpdate = false;      // updates an existing package
  bool isResign = false;      // only signs an .ipa anew
  bool isWEXSigning = false;  // signs the app inside a .wex package anew
  bool preserveUpgradeCompatibility = false;
  bool isWrapCommand = false;
  bool isSignCommand = false;
  bool isSetInfoCommand = false;
  bool isGetInfoCommand = false;
  bool isSdkPrepCommand = false;
  bool stripExtensions = true;
  bool useNetworkOnlyLib = false;
  bool packageApp = false;  // embed the .ipa in the package
  int32_t sdkOp = 0;        // SetInfo: 1 store address, 2 embedded bundle
  std::optional<std::string> certificate;
  std::optional<std::string> provisionProfile;
  std::optional<std::string> inputFile;
  std::optional<std::string> outputFile;
  std::optional<std::string> outputBundleFile;
  std::optional<std::string> packageId;
  std::optional<std::string> description;
  std::optional<std::string> originalBundleID;
  std::optional<std::string> replacementBundleID;
  std::optional<std::string> logFile;
  int64_t logWriteLevel = 2;
  int64_t logDisplayLevel = 2;
  std::optional<std::string> appFriendlyName;
  std::optional<std::string> minPlatform;
  std::optional<std::string> maxPlatform;
  std::optional<std::string> excludedDevices;
  // No command sets the next five.
  std::optional<std::string> keyStorePath;
  std::optional<std::string> keyStorePassword;
  std::optional<std::string> keyAlias;
  std::optional<std::string> keyPassword;
  std::optional<std::string> sdkinputFile;
  std::optional<std::string> appStoreUrl;
  std::optional<std::string> appMode;
  std::optional<std::string> wexToolKitPath;
  std::optional<std::string> appSpecificPolicyFilepath;
  std::optional<std::string> entitlementsPath;
  std::optional<std::string> teamId;
  std::optional<std::string> embedBundlePath;
  std::optional<std::string> adalClientId;
  std::optional<std::string> adalNSGResource;
};

// Filled by the command parsers, checked once by validate(), read by every later stage, which
// also keep their working objects here.
class AppConverterParam : public ConverterSettings {
 public:
  // The log file is logs/Orvane.log in the running program's folder.
  AppConverterParam();
  // The working objects stay with the original.
  AppConverterParam(const AppConverterParam& other);
  AppConverterParam& operator=(const AppConverterParam&) = delete;

  // Checks the record as a whole; the first failure is left in the slot. May change the record:
  // a log level out of range becomes 2, blanks leave a certificate digest, an output path
  // without extension gets ".wex", an update package sets isUpdate.
  bool validate(ErrorText* error);
  // Whether the text has at least one hexadecimal digit.
  static bool checkIfStringisHex(std::string_view text);

  // Whether the host's version is 10.9 (10.15) or later; an unknown version is not.
  static bool verifyIfOSVerisonIsMavericksandAbove();
  static bool verifyIfOSVerisonIsCatalinaOrAbove();
  // Whether nm, otool and codesign are there.
  static bool verifyIfDependentCommandLineToolsExist();
  // Runs the shell command line. True for status 0, and for any other with output.
  static bool executeInstallCommandLineTools(const std::string& commandLine);
  using ToolsCompletion = std::function<void(bool installed, bool mayInstall)>;
  // Whether the host has the developer tools; the completion, when given, is told first.
  static bool verifyCommandLineToolisInstalled(const ToolsCompletion& completion);
  // Starts the installation of the developer tools; always true.
  bool installCommandLineTools() const;

  std::shared_ptr<TemporaryDirectory> unzippedInputDirObj;
  std::shared_ptr<UnzippedIpa> unzippedIpaInstance;
  std::optional<std::string> outputIPAFileName;

 private:
  bool validateModesAndLevels(ErrorText* error);
  bool validateInput(ErrorText* error);
  bool validateCertificate(ErrorText* error);
  bool validateOutput(ErrorText* error);
};

}  // namespace tovrek
