// What the user asks for.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tovrek {

enum class CommandWord { kNone, kWrap, kSign, kSetInfo, kGetInfo, kSdkPrep };

// What SetInfo does to a package besides changing properties. The two exclude each other.
enum class SdkOperation { kNone = 0, kStoreAddress = 1, kEmbeddedBundle = 2 };

// Which management library is inserted.
enum class LibraryKind { kFull, kNetworkOnly };

// Filled by the command parsers, judged once by validate(), from then on only read. What a run
// finds out about the app is kept elsewhere. A text that was not given is none, which differs
// from one given as the empty text.
struct Request {
  // The log file is logs/Orvane.log in the running program's folder.
  Request();

  CommandWord command = CommandWord::kNone;
  bool isSDK = false;         // the app already contains the SDK
  bool isUpdate = false;      // updates an existing package
  bool isResign = false;      // only signs an .ipa anew
  bool isWEXSigning = false;  // signs the app inside a .wex package anew
  bool preserveUpgradeCompatibility = false;
  bool stripExtensions = true;
  bool packageApp = false;  // embed the .ipa in the package
  LibraryKind library = LibraryKind::kFull;
  SdkOperation sdkOp = SdkOperation::kNone;
  std::optional<std::string> certificate;
  std::optional<std::string> provisionProfile;
  std::optional<std::string> inputFile;
  std::optional<std::string> outputFile;
  std::optional<std::string> outputBundleFile;
  std::optional<std::string> packageId;
  std::optional<std::string> description;
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

}  // namespace tovrek
