#include "converter/inspection.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "converter/Run.h"
#include "converter/common.h"
#include "converter/otool_questions.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "package/binary_symbols.h"

namespace tovrek::converter {
namespace {

constexpr std::array<std::string_view, 5> kSdkFrameworks = {
    "WEX.framework", "WEXNetworkOnly.framework", "WexFrameworkLoader.framework",
    "ORVMAMCore.framework", "ORVMAMAppCore.framework"};

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool lists(const FrameworkNames& names, std::string_view name) {
  return std::find(names.begin(), names.end(), name) != names.end();
}

// Two of the frameworks make up one SDK and count only together.
bool holdAnSdk(const FrameworkNames& names) {
  return lists(names, "WEX.framework") || lists(names, "WEXNetworkOnly.framework") ||
         lists(names, "WexFrameworkLoader.framework") ||
         (lists(names, "ORVMAMCore.framework") && lists(names, "ORVMAMAppCore.framework"));
}

// The pattern "cryptid *0" of the command line.
bool listsUnencryptedSlice(std::string_view listing) {
  constexpr std::string_view kField = "cryptid";
  for (size_t at = listing.find(kField); at != std::string_view::npos;
       at = listing.find(kField, at + 1)) {
    const size_t value = listing.find_first_not_of(' ', at + kField.size());
    if (value != std::string_view::npos && listing[value] == '0') return true;
  }
  return false;
}

bool holdsSdkSymbols(std::string_view symbols) {
  return contains(symbols, "_ORVMAM_WrappedAppLib") || contains(symbols, "_OrvSingleSignOn") ||
         contains(symbols, "WEXSDKloadInit");
}

}  // namespace

bool checkIfAppBundle(const RunContext& context, const AppBundle& bundle,
                      BundleInspection* inspection, ErrorText* error) {
  const WrapperLogger& log = context.loggers.toolkit;
  const std::string executable = bundle.executablePath().value_or("");
  int status = 0;
  bool answered = false;
  const std::string symbolText = getSymbolsFromBinaryPath(executable, &status, &answered, error);
  log.logDetailed(symbolText, LineBreaks::kKept);
  if (!answered) return false;
  std::string report = "\n\n";
  if (status != 0) {
    report += fmt::format("\noutputStr {} terminatedStatus {}\n", symbolText, status);
  }

  FrameworkNames frameworks;
  ErrorText linkError;
  const bool symbols = holdsSdkSymbols(symbolText);
  const bool linked = verifyIfApplicationIsLinkedWithMDKSDK(log, bundle, &frameworks, &linkError);
  if (linkError.isSet()) return fail(error, linkError.text());
  const bool fips = linked && contains(symbolText, "_FINGERPRINT_premain");
  const bool dylib = fileExists(joinPath(bundle.path(), "OrvaneDylib.bundle/OrvaneDylib.dylib"));
  const bool policies = fileExists(joinPath(bundle.path(), "default_policies.xml"));

  // The last two values are those on entry: they are found out only now.
  report += fmt::format(
      "App has: WEXSymbols?{:d} WEXSDKFrameworkFound?{:d} OpenSSLFIPSModuleFound?{:d} "
      "DefaultPoliciesXML?{:d} OrvaneDylib?{:d} DualModeFrameworkFound?{:d} "
      "ORVMAMFrameworksFound?{:d}\n",
      symbols, linked, fips, policies, dylib, inspection->hasDualModeFrameworks,
      inspection->hasMAMSDKFrameworks);
  if (!policies && (symbols || linked)) {
    report += "WARNING: App will not work as expected when run in Premium/AppSpecific mode.\n";
  }
  systemLog(report + "\n", LineBreaks::kKept);
  log.logDetailed(report, LineBreaks::kKept);

  inspection->hasWEXSDKFramework = symbols || linked;
  inspection->hasOpenSSLFIPSModule = fips;
  inspection->hasOrvaneDylib = dylib;
  inspection->hasMAMSDKFrameworks =
      lists(frameworks, "ORVMAMCore.framework") && lists(frameworks, "ORVMAMAppCore.framework");
  inspection->hasDualModeFrameworks = lists(frameworks, "WexFrameworkLoader.framework");
  inspection->hasDefaultPoliciesXML = policies;
  inspection->debugString = std::move(report);
  return true;
}

std::optional<bool> verifyIfApplicationIsAlreadyWrapped(const WrapperLogger& log,
                                                        const AppBundle& bundle, ErrorText* error) {
  const auto outcome = runOnExecutable(log, bundle, otoolCommand("-l", bundle));
  if (!gaveAnswer(outcome, "otool", error)) return std::nullopt;
  const auto output = successfulOutput(outcome);
  if (!output || !contains(*output, "OrvaneDylib.dylib")) return false;
  fail(error, "ERROR: This app is already wrapped, and cannot be re-wrapped.");
  return true;
}

std::optional<bool> verifyIfApplicationIsAppStoreApp(const WrapperLogger& log,
                                                     const AppBundle& bundle, ErrorText* error) {
  const std::string commandLine = otoolCommand("-l", bundle, " | grep --regexp=\"cryptid *0\"");
  systemLog("str = " + commandLine);
  const auto outcome = runOnExecutable(log, bundle, commandLine);
  if (!gaveAnswer(outcome, "otool", error)) return std::nullopt;
  if (outcome->status == 0 || !outcome->output.empty()) return true;
  // grep's silence is also what an otool that could not be run leaves behind.
  const auto again = runOnExecutable(log, bundle, otoolCommand("-l", bundle));
  if (!gaveAnswer(again, "otool", error)) return std::nullopt;
  if (listsUnencryptedSlice(again->output)) return true;
  return fail(error, fmt::format("ERROR: The app ({}) is an AppStore app.",
                                 shown(bundle.executablePath())));
}

bool verifyIfApplicationIsLinkedWithStaticWEXSDK(const WrapperLogger& log, const AppBundle& bundle,
                                                 ErrorText* error) {
  const auto outcome = runOnExecutable(log, bundle, otoolCommand("-o", bundle));
  if (!gaveAnswer(outcome, "otool", error)) return false;
  const auto output = successfulOutput(outcome);
  return output && contains(*output, kLaunchHook);
}

bool verifyIfApplicationIsLinkedWithDylibWEXSDK(const WrapperLogger& log, const AppBundle& bundle,
                                                FrameworkNames* found, ErrorText* error) {
  const auto outcome = runOnExecutable(log, bundle, otoolCommand("-l", bundle));
  if (!gaveAnswer(outcome, "otool", error)) return false;
  const auto output = successfulOutput(outcome);
  if (!output) return false;
  FrameworkNames names;
  for (const std::string_view name : kSdkFrameworks) {
    if (contains(*output, name)) names.emplace_back(name);
  }
  if (found != nullptr) *found = names;
  return holdAnSdk(names);
}

bool verifyIfApplicationIsLinkedWithMDKSDK(const WrapperLogger& log, const AppBundle& bundle,
                                           FrameworkNames* found, ErrorText* error) {
  return verifyIfApplicationIsLinkedWithDylibWEXSDK(log, bundle, found, error) ||
         verifyIfApplicationIsLinkedWithStaticWEXSDK(log, bundle, error);
}

bool verifyIfItNotANativeiOSApp(const std::string& appPath, ErrorText* error) {
  ErrorText reason;
  const auto names = listDirectory(appPath, &reason);
  if (!names) return fail(error, fmt::format("{}: {}", appPath, reason.text()));
  const bool foreign = std::any_of(names->begin(), names->end(),
                                   [](const auto& name) { return name.ends_with(".dll"); });
  if (!foreign) return true;
  return fail(error,
              "The app seems not to be native iOS app , it could be build using cross platform "
              "compiler make sure the application source has been modified using the steps "
              "mentioned in KB article ....");
}

bool doesApplicationSupportAdobeAir(const std::string& appPath, ErrorText* error) {
  if (!fileExists(joinPath(appPath, "META-INF/AIR/application.xml"))) return false;
  fail(error, "WEX does not support wrapping applications created using the Adobe Air framework.");
  return true;
}

bool inspectApp(Run& run, ErrorText* error) {
  return checkIfAppBundle(run.context, *run.bundle, &run.inspection, error);
}

}  // namespace tovrek::converter
