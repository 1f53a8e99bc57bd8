// Which apps may be wrapped: what their executables load, contain and are signed with.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "converter/AppConverter.h"
#include "converter/common.h"
#include "host/HostRoot.h"
#include "host/files.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "package/AppBundle.h"
#include "package/binary_symbols.h"
#include "tools/tool_run.h"

namespace tovrek {

using namespace converter;

namespace {

constexpr char kLaunchHook[] = "orvApplication:willFinishLaunchingWithOptions:";
constexpr char kLinkedAgainstSdk[] =
    "ERROR: This app is already linked against the TelvoSDK, and cannot be wrapped.";

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

// "otool <option> <executable> <rest>", with the path made safe for the shell.
std::string otoolCommand(std::string_view option, const AppBundle& bundle,
                         std::string_view rest = {}) {
  return fmt::format("/usr/bin/otool {} \"{}\"{}", option,
                     AppConverter::escapeExecutableString(shown(bundle.executablePath())), rest);
}

std::optional<Outcome> runOnExecutable(const AppBundle& bundle, const std::string& commandLine) {
  systemLog(shown(bundle.executablePath()));
  return runShell(commandLine);
}

// The output of a tool that succeeded and said something; none otherwise.
std::optional<std::string> successfulOutput(const std::optional<Outcome>& outcome) {
  if (!outcome || outcome->status != 0 || outcome->output.empty()) return std::nullopt;
  return outcome->output;
}

size_t countOccurrences(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos;
       at = text.find(part, at + part.size())) {
    ++count;
  }
  return count;
}

bool holdsSdkSymbols(std::string_view symbols) {
  return contains(symbols, "_ORVMAM_WrappedAppLib") || contains(symbols, "_OrvSingleSignOn") ||
         contains(symbols, "WEXSDKloadInit");
}

}  // namespace

void AppConverter::checkIfAppBundle(const AppBundle& bundle, BundleInspection* inspection) {
  const std::string executable = bundle.executablePath().value_or("");
  int status = 0;
  const std::string symbolText = getSymbolsFromBinaryPath(executable, &status);
  logger().logDetailed(symbolText);
  std::string report = "\n\n";
  if (status != 0) {
    report += fmt::format("\noutputStr {} terminatedStatus {}\n", symbolText, status);
  }

  FrameworkNames frameworks;
  ErrorText linkError;
  const bool symbols = holdsSdkSymbols(symbolText);
  const bool linked = verifyIfApplicationIsLinkedWithMDKSDK(bundle, &frameworks, &linkError);
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
  if (linkError.isSet()) {
    report += "\nverifyIfApplicationIsLinkedWithMDKSDK error " + linkError.text();
  }
  if (!policies && (symbols || linked)) {
    report += "WARNING: App will not work as expected when run in Premium/AppSpecific mode.\n";
  }
  systemLog(report + "\n");
  logger().logDetailed(report);

  inspection->hasWEXSDKFramework = symbols || linked;
  inspection->hasOpenSSLFIPSModule = fips;
  inspection->hasOrvaneDylib = dylib;
  inspection->hasMAMSDKFrameworks =
      lists(frameworks, "ORVMAMCore.framework") && lists(frameworks, "ORVMAMAppCore.framework");
  inspection->hasDualModeFrameworks = lists(frameworks, "WexFrameworkLoader.framework");
  inspection->hasDefaultPoliciesXML = policies;
  inspection->debugString = std::move(report);
}

bool AppConverter::verifyIfApplicationIsAlreadyWrapped(const AppBundle& bundle, ErrorText* error) {
  const auto output = successfulOutput(runOnExecutable(bundle, otoolCommand("-l", bundle)));
  if (!output || !contains(*output, "OrvaneDylib.dylib")) return false;
  fail(error, "ERROR: This app is already wrapped, and cannot be re-wrapped.");
  return true;
}

bool AppConverter::verifyIfAppBundleIsAlreadyWrapped(const AppBundle& bundle, ErrorText* error) {
  const auto outcome = runOnExecutable(
      bundle, otoolCommand("-o", bundle, fmt::format(" | grep \"{}\"", kLaunchHook)));
  if (!outcome) return false;
  return !successfulOutput(outcome) || fail(error, kLinkedAgainstSdk);
}

bool AppConverter::verifyIfApplicationIsAppStoreApp(const AppBundle& bundle, ErrorText* error) {
  const std::string commandLine = otoolCommand("-l", bundle, " | grep --regexp=\"cryptid *0\"");
  systemLog("str = " + commandLine);
  const auto outcome = runOnExecutable(bundle, commandLine);
  if (!outcome) return false;
  if (outcome->status == 0 || !outcome->output.empty()) return true;
  return fail(error, fmt::format("ERROR: The app ({}) is an AppStore app.",
                                 shown(bundle.executablePath())));
}

bool AppConverter::verifyIfApplicationIsLinkedWithStaticWEXSDK(const AppBundle& bundle,
                                                               ErrorText* /*error*/) {
  const auto output = successfulOutput(runOnExecutable(bundle, otoolCommand("-o", bundle)));
  return output && contains(*output, kLaunchHook);
}

bool AppConverter::verifyIfApplicationIsLinkedWithDylibWEXSDK(const AppBundle& bundle,
                                                              FrameworkNames* found,
                                                              ErrorText* /*error*/) {
  const auto output = successfulOutput(runOnExecutable(bundle, otoolCommand("-l", bundle)));
  if (!output) return false;
  FrameworkNames names;
  for (const std::string_view name : kSdkFrameworks) {
    if (contains(*output, name)) names.emplace_back(name);
  }
  if (found != nullptr) *found = names;
  return holdAnSdk(names);
}

bool AppConverter::verifyIfApplicationIsLinkedWithMDKSDK(const AppBundle& bundle,
                                                         FrameworkNames* found, ErrorText* error) {
  return verifyIfApplicationIsLinkedWithDylibWEXSDK(bundle, found, error) ||
         verifyIfApplicationIsLinkedWithStaticWEXSDK(bundle, error);
}

bool AppConverter::verifyIfItNotANativeiOSApp(const std::string& appPath, ErrorText* error) {
  const auto names = listDirectory(appPath);
  const bool foreign = names && std::any_of(names->begin(), names->end(), [](const auto& name) {
                         return name.ends_with(".dll");
                       });
  if (!foreign) return true;
  return fail(error,
              "The app seems not to be native iOS app , it could be build using cross platform "
              "compiler make sure the application source has been modified using the steps "
              "mentioned in KB article ....");
}

bool AppConverter::doesApplicationSupportAdobeAir(const std::string& appPath, ErrorText* error) {
  if (!fileExists(joinPath(appPath, "META-INF/AIR/application.xml"))) return false;
  fail(error, "WEX does not support wrapping applications created using the Adobe Air framework.");
  return true;
}

bool AppConverter::checkForDuplicateCertificates(const std::string& certificate, ErrorText* error) {
  if (certificate.empty()) return false;
  const auto output = successfulOutput(runShell("security find-identity -v -p codesigning"));
  if (!output || countOccurrences(*output, certificate) < 2) return false;
  fail(error,
       "WARNING: Duplicate certificates in keychain, code signing may fail.  Use Keychain Access "
       "utility to resolve this.");
  return true;
}

bool AppConverter::isCmdLineToolInstalled() {
  return HostRoot::exists("/var/db/receipts/com.apple.pkg.DeveloperToolsCLI.bom") ||
         HostRoot::exists("/var/db/receipts/com.apple.pkg.CLTools_Executables.bom") ||
         AppConverterParam::verifyCommandLineToolisInstalled(nullptr);
}

bool AppConverter::checkOrvaneDylib(const std::string& path, ErrorText* error) {
  if (!fileExists(path)) {
    return fail(error, fmt::format("A required file at this location does not exist: {}", path));
  }
  return VerifyOrvaneDylib(path, error);
}

bool AppConverter::checkOrvaneLoggerDylib(const std::string& path, ErrorText* error) {
  return checkOrvaneDylib(path, error);
}

}  // namespace tovrek
