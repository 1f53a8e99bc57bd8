#include "converter/code_signing.h"

#include <fmt/format.h>

#include <string_view>
#include <vector>

#include "converter/codesign_commands.h"
#include "converter/common.h"
#include "converter/extension_fitting.h"
#include "converter/insertion.h"
#include "converter/steps.h"
#include "host/disk_space.h"
#include "host/files.h"
#include "host/host_info.h"
#include "log/SystemLog.h"
#include "tools/host_checks.h"
#include "tools/tool_run.h"

namespace tovrek::converter {
namespace {

Signer signerOf(const Run& run) {
  return {run.request.certificate.value_or(""), run.context.keychain};
}

bool removeForSigning(const std::string& path, ErrorText* error) {
  ErrorText reason;
  return removeItem(path, &reason) || failToRemove(reason, error);
}

bool signBundle(const Run& run, const std::string& path,
                const std::optional<std::string>& entitlementPath, Requirements requirements,
                ErrorText* error) {
  return runToolOrFail(run.log(),
                       signBundleCommand(signerOf(run), path, entitlementPath, requirements),
                       "codesign:withEntitlement:withError: - ", error, run.signing.get());
}

// The app may be tried out without an extension that cannot take the library.
void rebuildExtensions(const Run& run) {
  const std::string folder = joinPath(run.appPath, "PlugIns/");
  for (const NestedBundle& bundle : run.nested) {
    const bool isExtension = pathExtension(bundle.path) == "appex";
    if (run.request.isSDK || !isExtension || !bundle.path.starts_with(folder)) continue;
    ErrorText reason;
    if (!MachORebuild(run, bundle.path, ExecutableKind::kAppExtension, &reason)) {
      run.log().logWarning(fmt::format("{}: {}", bundle.path, reason.text()));
    }
  }
}

}  // namespace

bool verifyCodeSigningPrerequisites(const Run& run, const std::string& appPath,
                                    const std::string& /*entitlementPath*/, ErrorText* error) {
  const std::string signature = joinPath(appPath, "_CodeSignature");
  if (itemExistsNoFollow(signature)) {
    if (!removeForSigning(signature, error)) return false;
  } else {
    run.log().logError(
        fmt::format("Error: _CodeSignature does not exist at {}. This may not be a signed app. "
                    "Temporary ignoring it...",
                    appPath));
  }
  const std::string codeResources = joinPath(appPath, "CodeResources");
  if (itemExistsNoFollow(codeResources) && !removeForSigning(codeResources, error)) return false;

  const std::string rules = joinPath(appPath, "ResourceRules.plist");
  if (fileExists(rules)) return true;
  run.log().logWarning(
      "The app does not have resource rules defined! Will use default resource rules file to sign "
      "the app. ");
  return copyOrFail(run.contentFile("ResourceRules.plist"), rules, error);
}

bool CodeSignOrvaneDylib(const Run& run, const std::string& appPath, ErrorText* error) {
  const std::string dylib = appPath + "/OrvaneDylib.bundle/OrvaneDylib.dylib";
  systemLog(dylib);
  if (!runToolOrFail(run.log(), signLibraryCommand(signerOf(run), dylib), "dylibcodesign", error,
                     run.signing.get())) {
    return false;
  }

  if (!verifyCodeSignatureForiOS8(dylib)) {
    const std::string warning =
        "WARNING: Your binaries are not correctly signed for iOS 8.  Please check command line "
        "tools version, your certificate and provisioning profile.";
    run.log().logBasic(warning);
    warnIfEmpty(error, warning);
  }
  return true;
}

bool verifyCodeSignatureForiOS8(const std::string& path) {
  Command command;
  command.argv = displayTeamCommand(path);
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

bool CodeSignFrameworks(const Run& run, const std::string& bundlePath, ErrorText* error) {
  const std::string folder = joinPath(bundlePath, "Frameworks");
  run.log().logBasic("Code signing binaries located in folder " + folder);
  bool succeeded = true;
  const auto sign = [&](const WalkedItem& item) {
    const std::string extension = pathExtension(item.relativePath);
    if (!succeeded || (extension != "dylib" && extension != "framework")) return succeeded;
    const std::string path = joinPath(folder, item.relativePath);
    run.log().logBasic("Code signing " + path + "...");
    // A link may lead back to a folder above; what it names is signed where it stands.
    if (item.kind != ItemKind::kLink && !CodeSignFrameworks(run, path, error)) {
      return succeeded = false;
    }
    succeeded = runToolOrFail(run.log(), signNestedCodeCommand(signerOf(run), path),
                              "dylibcodesign", error, run.signing.get());
    return false;
  };
  return walkDirectoryIfThere(folder, sign, error) && succeeded;
}

bool CodeSignExtensions(const Run& run, const std::string& appPath, ErrorText* error) {
  const std::string folder = joinPath(appPath, "PlugIns");
  run.log().logBasic("Code signing binaries located in folder " + folder);
  std::vector<std::string> extensions;
  const auto collect = [&](const WalkedItem& item) {
    if (pathExtension(item.relativePath) == "appex") {
      extensions.push_back(joinPath(folder, item.relativePath));
    }
    return true;
  };
  if (!walkDirectoryIfThere(folder, collect, error)) return false;
  for (const std::string& path : extensions) {
    run.log().logBasic("Code signing " + path + "...");
    // The app may be tried out without it.
    const auto warn = [&](bool succeeded, const ErrorText& reason) {
      if (!succeeded) run.log().logWarning(fmt::format("{}: {}", path, reason.text()));
    };
    ErrorText reason;
    if (!run.request.isSDK) {
      warn(MachORebuild(run, path, ExecutableKind::kAppExtension, &reason), reason);
    }
    reason.clear();
    warn(CodeSign(run, path, std::nullopt, &reason), reason);
  }
  return true;
}

bool CodeSign(const Run& run, const std::string& bundlePath,
              const std::optional<std::string>& entitlementPath, ErrorText* error) {
  const bool hasFile = entitlementPath && isPlainFile(*entitlementPath);
  return signBundle(run, bundlePath, hasFile ? entitlementPath : std::nullopt, Requirements::kKept,
                    error);
}

bool signAsNew(const Run& run, const std::string& bundlePath,
               const std::optional<std::string>& entitlementPath, ErrorText* error) {
  return signBundle(run, bundlePath, entitlementPath, Requirements::kNew, error);
}

bool EmbedOpenSSLFipsFingerprint(const WrapperLogger& log, const std::string& appPath,
                                 ErrorText* error) {
  const auto bundle = AppBundle::open(appPath);
  const std::string executable = bundle ? bundle->executablePath().value_or("") : "";
  const std::string tool = joinPath(programFolder(), "incore_macho");
  systemLog("Trying to run " + tool);
  const int status = runTool(log, {tool, "--debug", "-exe", executable});
  // It comes with the SDK's crypto module, not with us.
  if (status == kNotStarted) log.logError("The fingerprint tool could not be started: " + tool);
  // The tool ends with 255 when the fingerprint was there already.
  return status == 0 || status == 255 || failWithStatus(error, "incore_macho", status);
}

bool failSigning(const WrapperLogger& log, const char* reason) {
  log.logError(reason);
  if (!isCmdLineToolInstalled()) {
    log.logError(
        "You may need to install the command line tools. Please download the optional Command Line "
        "Tools installation from the 'Xcode' menu > Preferences > Download section in Xcode. ");
  }
  return false;
}

bool dropOldSignature(Run& run, ErrorText* error) {
  run.progressor.SetProgress("Code signing...");
  run.signing = std::make_unique<ProgressStage>(run.context.showsProgress, "Signing",
                                                [&run] { return bytesBelow(run.appPath); });
  return verifyCodeSigningPrerequisites(run, run.appPath, run.entitlementPath, error);
}

bool signLibrary(Run& run, ErrorText* error) {
  return CodeSignOrvaneDylib(run, run.appPath, error) || failSigning(run.log(), "Codesign fails.");
}

bool signFrameworks(Run& run, ErrorText* error) {
  return (signFitted(run, FittedPlace::kInFrameworks, error) &&
          CodeSignFrameworks(run, run.appPath, error)) ||
         failSigning(run.log(), "Codesign of embedded frameworks failed");
}

bool signExtensions(Run& run, ErrorText* error) {
  if (fitsExtensions(run)) {
    rebuildExtensions(run);
    return signFitted(run, FittedPlace::kElsewhere, error) ||
           failSigning(run.log(), "Codesign of extensions failed");
  }
  return run.request.stripExtensions || CodeSignExtensions(run, run.appPath, error) ||
         failSigning(run.log(), "Codesign of extensions failed");
}

bool stampFingerprint(Run& run, ErrorText* error) {
  return !run.inspection.hasFingerprint() ||
         EmbedOpenSSLFipsFingerprint(run.log(), run.appPath, error);
}

bool signApp(Run& run, ErrorText* error) {
  return CodeSign(run, run.appPath, run.entitlementPath, error);
}

}  // namespace tovrek::converter
