// Signing, from the inside out. The code directory, the seal and the certificates are all the
// business of codesign; here is which code it signs, in which order and with which arguments.
#include <fmt/format.h>

#include "context/PellRequest.h"
#include "converter/AppConverter.h"
#include "converter/common.h"
#include "formats/utf8.h"
#include "host/HostRoot.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "package/AppBundle.h"
#include "tools/tool_run.h"

namespace tovrek {

using namespace converter;

namespace {

constexpr char kCodesign[] = "/usr/bin/codesign";
constexpr int kBinaryTypeExtension = 1;

using Arguments = std::vector<std::string>;

// "--keychain <path>" when the user asked for a keychain and named it.
void appendKeychain(Arguments* arguments) {
  const PellRequest& request = PellRequest::sharedInstance();
  if (!request.pellRequestFlag() || !request.keychainPath()) return;
  arguments->push_back("--keychain");
  arguments->push_back(*request.keychainPath());
}

bool removeForSigning(const std::string& path, ErrorText* error) {
  ErrorText reason;
  if (removeItem(path, &reason)) return true;
  return fail(error, fmt::format("Failed to remove _CodeSignature. Error:{}", reason.text()));
}

}  // namespace

bool AppConverter::verifyCodeSigningPrerequisites(const std::string& appPath,
                                                  const std::string& /*entitlementPath*/,
                                                  ErrorText* error) {
  const std::string signature = joinPath(appPath, "_CodeSignature");
  if (itemExistsNoFollow(signature)) {
    if (!removeForSigning(signature, error)) return false;
  } else {
    logger().logError(
        fmt::format("Error: _CodeSignature does not exist at {}. This may not be a signed app. "
                    "Temporary ignoring it...",
                    appPath));
  }
  const std::string codeResources = joinPath(appPath, "CodeResources");
  if (itemExistsNoFollow(codeResources) && !removeForSigning(codeResources, error)) return false;

  const std::string rules = joinPath(appPath, "ResourceRules.plist");
  if (fileExists(rules)) return true;
  logger().logWarning(
      "The app does not have resource rules defined! Will use default resource rules file to sign "
      "the app. ");
  return copyOrFail(contentFile("ResourceRules.plist"), rules, error);
}

bool AppConverter::CodeSignOrvaneDylib(const std::string& appPath, ErrorText* error) {
  Arguments arguments = {kCodesign, "-f", "-s", converterParam_.certificate.value_or("")};
  appendKeychain(&arguments);
  const std::string dylib = appPath + "/OrvaneDylib.bundle/OrvaneDylib.dylib";
  systemLog(dylib);
  arguments.push_back(dylib);
  if (!runToolOrFail(arguments, "dylibcodesign", error)) return false;

  if (!verifyCodeSignatureForiOS8(dylib)) {
    const std::string warning =
        "WARNING: Your binaries are not correctly signed for iOS 8.  Please check command line "
        "tools version, your certificate and provisioning profile.";
    logger().logBasic(warning);
    warnIfEmpty(error, warning);
  }
  return true;
}

bool AppConverter::verifyCodeSignatureForiOS8(const std::string& path) {
  Command command;
  command.argv = {kCodesign, "--display", "--verbose=4", path};
  command.standardError = StandardError::kCapture;
  Outcome outcome;
  if (!runProcess(command, &outcome)) return false;

  constexpr std::string_view kTeam = "TeamIdentifier=";
  bool namesTeam = false;
  std::string_view rest = outcome.errorOutput;
  while (!rest.empty()) {
    std::string_view line = rest.substr(0, rest.find('\n'));
    rest.remove_prefix(std::min(rest.size(), line.size() + 1));
    if (!line.starts_with(kTeam)) continue;
    line.remove_prefix(kTeam.size());
    if (line.substr(0, line.find('=')) != "not set") namesTeam = true;
  }
  return namesTeam;
}

bool AppConverter::CodeSignFrameworks(const std::string& bundlePath, ErrorText* error) {
  const std::string folder = joinPath(bundlePath, "Frameworks");
  logger().logBasic("Code signing binaries located in folder " + folder);
  bool succeeded = true;
  walkDirectory(folder, [&](const WalkedItem& item) {
    const std::string extension = pathExtension(item.relativePath);
    if (!succeeded || (extension != "dylib" && extension != "framework")) return succeeded;
    const std::string path = joinPath(folder, item.relativePath);
    logger().logBasic("Code signing " + path + "...");
    // A link may lead back to a folder above; what it names is signed where it stands.
    if (item.kind == ItemKind::kDirectory && !CodeSignFrameworks(path, error)) {
      return succeeded = false;
    }
    Arguments arguments = {kCodesign, "-f", "-s", converterParam_.certificate.value_or(""), path};
    appendKeychain(&arguments);
    succeeded = runToolOrFail(arguments, "dylibcodesign", error);
    return false;
  });
  return succeeded;
}

bool AppConverter::CodeSignExtensions(const std::string& appPath, ErrorText* /*error*/) {
  const std::string folder = joinPath(appPath, "PlugIns");
  logger().logBasic("Code signing binaries located in folder " + folder);
  std::vector<std::string> extensions;
  walkDirectory(folder, [&](const WalkedItem& item) {
    if (pathExtension(item.relativePath) == "appex") {
      extensions.push_back(joinPath(folder, item.relativePath));
    }
    return true;
  });
  const int libraryType = converterParam_.useNetworkOnlyLib ? 1 : 0;
  for (const std::string& path : extensions) {
    logger().logBasic("Code signing " + path + "...");
    ErrorText reason;
    if (!isSDK_) MachORebuild(path, kBinaryTypeExtension, libraryType, &reason);
    CodeSign(path, std::nullopt, &reason);
    if (reason.isSet()) logger().logWarning(reason.text());
  }
  return true;
}

bool AppConverter::CodeSign(const std::string& bundlePath,
                            const std::optional<std::string>& entitlementPath, ErrorText* error) {
  Arguments arguments = {kCodesign, "-f", "-s", converterParam_.certificate.value_or("")};
  appendKeychain(&arguments);
  arguments.push_back(bundlePath);
  if (entitlementPath && isPlainFile(*entitlementPath)) {
    arguments.push_back("--entitlements");
    arguments.push_back(*entitlementPath);
    arguments.push_back("--preserve-metadata=requirements");
  } else {
    arguments.push_back("--preserve-metadata=requirements,entitlements");
  }
  return runToolOrFail(arguments, "codesign:withEntitlement:withError: - ", error);
}

bool AppConverter::signAsNew(const std::string& bundlePath,
                             const std::optional<std::string>& entitlementPath, ErrorText* error) {
  Arguments arguments = {kCodesign, "-f", "-s", converterParam_.certificate.value_or("")};
  appendKeychain(&arguments);
  arguments.push_back(bundlePath);
  if (entitlementPath) {
    arguments.push_back("--entitlements");
    arguments.push_back(*entitlementPath);
  } else {
    arguments.push_back("--preserve-metadata=entitlements");
  }
  return runToolOrFail(arguments, "codesign:withEntitlement:withError: - ", error);
}

bool AppConverter::VerifyOrvaneDylib(const std::string& path, ErrorText* error) {
  Command command;
  command.argv = {kCodesign, "-dvvv", path};
  command.standardError = StandardError::kCapture;
  Outcome outcome;
  ErrorText reason;
  if (!runProcess(command, &outcome, &reason)) {
    return fail(error, fmt::format("Catch an exception! Exception description: {}", reason.text()));
  }
  if (outcome.status != 0) {
    return failWithStatus(error, "codesign-verifyOrvaneDylib", outcome.status);
  }
  if (!isUtf8(outcome.errorOutput)) return fail(error, "Failed to allocate memory.");
  constexpr char kAuthority[] = "Authority=iPhone Distribution: Orvane Systems, Inc";
  if (outcome.errorOutput.find(kAuthority) == std::string::npos) {
    return fail(error, "Failed to validate that dylib is signed by Orvane.");
  }
  return true;
}

bool AppConverter::EmbedOpenSSLFipsFingerprint(const std::string& appPath, ErrorText* error) {
  const auto bundle = AppBundle::open(appPath);
  const std::string executable = bundle ? bundle->executablePath().value_or("") : "";
  const std::string tool = joinPath(programFolder(), "incore_macho");
  systemLog("Trying to run " + tool);
  // It comes with the SDK's crypto module, not with us: say so before a status that tells little.
  if (!HostRoot::exists(tool)) {
    return fail(error, fmt::format("A required file at this location does not exist: {}", tool));
  }
  const int status = runTool({tool, "--debug", "-exe", executable});
  // The tool ends with 255 when the fingerprint was there already.
  return status == 0 || status == 255 || failWithStatus(error, "incore_macho", status);
}

}  // namespace tovrek
