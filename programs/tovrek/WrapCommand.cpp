#include "programs/tovrek/WrapCommand.h"

#include <fmt/format.h>

#include "host/paths.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

// Codes of the app modes.
constexpr char kPremium[] = "1";
constexpr char kGeneral[] = "2";
constexpr char kEnterprise[] = "3";

bool takeOutBundle(OptionTarget& target, const std::string& value) {
  target.request.outputBundleFile = trimmed(value);
  target.request.appMode = kGeneral;
  printTrace(fmt::format("outputBundleFile ({})", *target.request.outputBundleFile));
  return true;
}

bool refuseSdk(OptionTarget& target) {
  return fail(target.error,
              "Wrapping an SDK app by using this command is not supported. See the WEX Toolkit "
              "documentation for information on preparing the app for App Store distribution.");
}

bool takeAppMode(OptionTarget& target, const std::string& value) {
  if (value != kPremium && value != kGeneral && value != kEnterprise) {
    return failInvalidValue(target.error, "-appMode");
  }
  target.request.appMode = value;
  printTrace(fmt::format("appMode ({})", value));
  return true;
}

bool takeAppType(OptionTarget& target, const std::string& value) {
  if (equalsIgnoringCase(value, "premium")) {
    target.request.appMode = kPremium;
  } else if (equalsIgnoringCase(value, "general")) {
    target.request.appMode = kGeneral;
  } else if (equalsIgnoringCase(value, "enterprise")) {
    target.request.appMode = kEnterprise;
    target.request.packageApp = true;
    target.request.isSDK = true;
  } else {
    return failInvalidValue(target.error, "-appType");
  }
  printTrace(fmt::format("appType ({})", value));
  return true;
}

bool takeKeychainPath(OptionTarget& target, const std::string& value) {
  target.keychain.setKeychainPath(value);
  printTrace(fmt::format("Keychain path ({}) ", value));
  return true;
}

bool meetPell(OptionTarget& target) {
  target.keychain.setPellRequestFlag(true);
  printTrace("PELL ");
  return true;
}

Option packageAppOption(bool* requested) {
  return {"-packageApp",
          [requested](OptionTarget&) {
            *requested = true;
            printTrace("packageApp ");
            return true;
          },
          nullptr};
}

// `packageAppRequested` is set when the option is met.
OptionTable options(bool* packageAppRequested) {
  using R = Request;
  return {
      valueOption("-Cert", &R::certificate, "certificate ({})"),
      valueOption("-Profile", &R::provisionProfile, "provisionProfile ({})"),
      valueOption("-in", &R::inputFile, "inputFile ({})", Form::kStandardizedPath),
      valueOption("-out", &R::outputFile, "outputFile ({})", Form::kTrimmed),
      checkedOption("-outBundle", takeOutBundle),
      valueOption("-appDesc", &R::description, "package description ({})"),
      valueOption("-bundleID", &R::replacementBundleID, "bundle identifier ({})"),
      valueOption("-logFile", &R::logFile, "logFile name ({})"),
      levelOption("-logWriteLevel", &R::logWriteLevel),
      levelOption("-logDisplayLevel", &R::logDisplayLevel),
      valueOption("-appName", &R::appFriendlyName, "appname ({})"),
      flagOption("-upgrade", &R::preserveUpgradeCompatibility, true, ""),
      valueOption("-minPlatform", &R::minPlatform, "minPlatform ({})"),
      valueOption("-maxPlatform", &R::maxPlatform, "maxPlatform ({})"),
      valueOption("-excludedDevices", &R::excludedDevices, "excludedDevices ({})"),
      {"-sdk", refuseSdk, nullptr},
      packageAppOption(packageAppRequested),
      checkedOption("-storeURL",
                    [](OptionTarget& target, const std::string& value) {
                      return takeStoreUrl(target, value, UrlForm::kStrict);
                    }),
      checkedOption("-appMode", takeAppMode),
      checkedOption("-appType", takeAppType),
      valueOption("-policyXML", &R::appSpecificPolicyFilepath, "policyXML ({})",
                  Form::kStandardizedPath),
      {"-pell", meetPell, nullptr},
      checkedOption("-keychainPath", takeKeychainPath),
      flagOption("-noStripExtensions", &R::stripExtensions, false, "No Strip Extensions "),
      flagOption("-useNetworkOnlyLib", &R::library, LibraryKind::kNetworkOnly,
                 "Use network only lib "),
      valueOption("-adalClientID", &R::adalClientId, "ADAL Client ID ({}) ", Form::kTrimmed),
      valueOption("-adalNSGResource", &R::adalNSGResource, "ADAL NSG Resource ({}) "),
  };
}

}  // namespace

WrapCommand::WrapCommand() : WexToolkitCommand("Wrap", options(&packageAppRequested_), helpText) {}

bool WrapCommand::finish(Request& request, ErrorText*) {
  // An SDK app is embedded only when asked for; what -appType set before does not count.
  request.packageApp = !request.isSDK || packageAppRequested_;
  return true;
}

std::string WrapCommand::helpText() {
  return "--------------------------------------------------------- \n"
         "Wrap Command \n"
         "Tovrek Wrap -in INPUTFILE -out OUTPUTFILE -Cert CERTIFICATE -Profile PROFILE -appDesc "
         "DESCRIPTION\n\n"
         " -Cert CERTIFICATE           ==>  (Required)Name of the certificate to sign the app "
         "with\n"
         " -Profile PROFILE            ==>  (Required) Name of the provisioning profile to sign "
         "the "
         "app with\n"
         " -in INPUTFILE               ==>  (Required) Name of the input app file\n"
         " -out OUTPUTFILE             ==>  (Required) Name of the output wex file\n"
         " -outBundle OUTPUTBUNDLEFILE ==>  (Optional) Name of the output bundle (ipa) file\n"
         " -appName NAME               ==>  (Optional) Friendly name of the app \n"
         " -bundleID BUNDLEID          ==>  (Optional) Bundle ID to be used for the wrapped app \n"
         " -upgrade                    ==>  (Optional) Preserve in-place upgrade capabilty (not "
         "recommended for new apps)\n"
         " -appDesc DESCRIPTION        ==>  (Optional) Description of the package \n"
         " -minPlatform VERSION        ==>  (Optional) Minimum supported platform version \n"
         " -maxPlatform VERSION        ==>  (Optional) Maximum supported platform version \n"
         " -excludedDevices DEVICES    ==>  (Optional) List of device types the app is not allowed "
         "to "
         "install on \n"
         " -logFile LOGFILE            ==>  (Optional) Name of the log file \n"
         " -logWriteLevel 0-4          ==>  (Optional) Log level for file output \n"
         " -logDisplayLevel 0-4        ==>  (Optional) Log level for standard output \n"
         " -storeURL URL               ==>  (Optional; SDK) For example, "
         "http://adhoc.example.com/store/sample.ipa \n"
         " -policyXML POLICYFILE       ==>  (Optional) Defaults to using the internal policy "
         "definition\n"
         " -noStripExtensions          ==>  (Optional) Retain iOS extensions in the app\n"
         " -adalClientID ADALCLIENTID  ==>  (Optional) Store or overwrite specified Intune ADAL "
         "ClientId setting in info.plist (supports multi tenant Intune ClientId)\n"
         " -adalNSGResource RESOURCE   ==>  (Optional) Store or overwrite specified Intune ADAL "
         "Gatewell Gateway Resource setting in info.plist (supports multi tenant Intune ClientId)\n"
         " -useNetworkOnlyLib          ==>  (Optional) Uses the WEX Network Only library "
         "implementation, which can only be configured and managed by Microsoft Intune\n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "Tovrek Wrap -Cert \"iPhone Distribution: Example Corporation\" -Profile "
         "\"distribution.mobileprovision\" -in \"input.ipa\" -out \"output.wex\" -appdesc \"Test "
         "App "
         "Version 1.0\" -minPlatform \"7.0\" -maxPlatform \"9.0\" \n "
         "\n---------------EXAMPLE-------------------- \n"
         "--------------------------------------------------------- \n\n";
}

}  // namespace tovrek
