#include "programs/tovrek/WrapCommand.h"

#include <fmt/format.h>

#include "host/paths.h"
#include "log/SystemLog.h"
#include "programs/tovrek/help.h"

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
OptionTable wrapOptions(bool* packageAppRequested) {
  using R = Request;
  return withCommon({
      valueOption("-Cert", &R::certificate, "certificate ({})"),
      valueOption("-Profile", &R::provisionProfile, "provisionProfile ({})"),
      checkedOption("-outBundle", takeOutBundle),
      valueOption("-appDesc", &R::description, "package description ({})"),
      valueOption("-bundleID", &R::replacementBundleID, "bundle identifier ({})"),
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
  });
}

}  // namespace

WrapCommand::WrapCommand()
    : WexToolkitCommand("Wrap", wrapOptions(&packageAppRequested_), wrapHelp,
                        [this](Request& request, ErrorText*) {
                          // An SDK app is embedded only when asked for; what -appType set before
                          // does not count.
                          request.packageApp = !request.isSDK || packageAppRequested_;
                          return true;
                        }) {}

}  // namespace tovrek
