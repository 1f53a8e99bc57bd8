#include "programs/tovrek/SdkPrepCommand.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <utility>

#include "host/paths.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

bool takeUrl(OptionTarget& target, const std::string& value) {
  if (!takeStoreUrl(target, value, UrlForm::kEscaped)) return false;
  target.request.isSDK = true;
  return true;
}

// Judged by its leading digits, stored as typed. The activation mode has no number here.
bool takeModeNumber(OptionTarget& target, const std::string& value) {
  const long mode = std::strtol(value.c_str(), nullptr, 10);
  if (mode != 1 && mode != 2 && mode != 3 && mode != 5) {
    return failInvalidValue(target.error, "-appMode");
  }
  target.request.appMode = value;
  target.request.isSDK = true;
  printTrace(fmt::format("appMode ({})", value));
  return true;
}

bool takeModeName(OptionTarget& target, const std::string& value) {
  constexpr std::array<std::pair<const char*, const char*>, 5> kCodes = {{{"premium", "1"},
                                                                          {"general", "2"},
                                                                          {"enterprise", "3"},
                                                                          {"activation", "4"},
                                                                          {"sdkapp", "5"}}};
  printTrace(fmt::format("appType ({})", value));
  for (const auto& [name, code] : kCodes) {
    if (!equalsIgnoringCase(value, name)) continue;
    target.request.appMode = code;
    target.request.isSDK = true;
    return true;
  }
  printOut(fmt::format("INVALID appType value {} \n", value));
  return failInvalidValue(target.error, "-appType");
}

OptionTable sdkPrepOptions() {
  using R = Request;
  return {
      valueOption("-in", &R::inputFile, "inputFile ({})", Form::kStandardizedPath),
      valueOption("-out", &R::outputFile, "outputFile ({})", Form::kTrimmed),
      valueOption("-packageId", &R::packageId, "packageId  ({})", Form::kWithoutQuotes),
      valueOption("-appDesc", &R::description, "package description ({})", Form::kWithoutQuotes),
      valueOption("-logFile", &R::logFile, "logFile name ({})"),
      levelOption("-logWriteLevel", &R::logWriteLevel),
      levelOption("-logDisplayLevel", &R::logDisplayLevel),
      valueOption("-minPlatform", &R::minPlatform, "minPlatform ({})"),
      valueOption("-maxPlatform", &R::maxPlatform, "maxPlatform ({})"),
      valueOption("-excludedDevices", &R::excludedDevices, "excludedDevices ({})",
                  Form::kWithoutQuotes),
      checkedOption("-storeURL", takeUrl),
      checkedOption("-appMode", takeModeNumber),
      checkedOption("-appType", takeModeName),
      valueOption("-policyXML", &R::appSpecificPolicyFilepath, "policyXML ({})",
                  Form::kStandardizedPath),
      valueOption("-entitlements", &R::entitlementsPath, "entitlements ({})",
                  Form::kStandardizedPath),
      // No path, yet read like one: build scripts may rely on it.
      valueOption("-appIdPrefix", &R::teamId, "appIdPrefix ({})", Form::kStandardizedPath),
      valueOption("-adalClientID", &R::adalClientId, "ADAL Client ID ({}) ", Form::kTrimmed),
      valueOption("-adalNSGResource", &R::adalNSGResource, "ADAL NSG Resource ({}) "),
  };
}

}  // namespace

SdkPrepCommand::SdkPrepCommand() : WexToolkitCommand("SdkPrep", sdkPrepOptions(), helpText) {}

bool SdkPrepCommand::finish(Request& request, ErrorText*) {
  request.isUpdate = true;
  return true;
}

bool SdkPrepCommand::refuseUnknown(const std::string& argument, ErrorText* error) {
  // Build logs show the system log; the message must be found there too.
  ErrorText text;
  WexToolkitCommand::refuseUnknown(argument, &text);
  systemLog(text.text());
  return fail(error, text.text());
}

std::string SdkPrepCommand::helpText() {
  return "--------------------------------------------------------- \n"
         "SdkPrep Command \n"
         "Tovrek SdkPrep -in INPUTFILE -appDesc DESCRIPTION  \n\n"
         " -in INPUTFILE              ==>  (Required)Name of the input app file\n"
         " -out OUTPUTFILE            ==>  (Required)Name of the output wex file\n"
         " -packageId GUID            ==>  (Required)Package identifier GUID\n"
         " -appType TYPE              ==>  (Required)App type (General, Premium, Enterprise)\n"
         " -storeURL url              ==>  (Required)http://adhoc.example.com/store/sample.ipa\n"
         " -entitlements PATH         ==>  (Required)Path to entitlements file\n"
         " -appIdPrefix APP_ID_PREFIX ==>  (Optional)Application Identifier Prefix (often the same "
         "as "
         "the Team ID)\n"
         " -appDesc DESCRIPTION       ==>  (Optional)Description of the package \n"
         " -minPlatform VERSION       ==>  (Optional)Minimum supported platform version \n"
         " -maxPlatform VERSION       ==>  (Optional)Maximum supported platform version \n"
         " -excludedDevices DEVICES   ==>  (Optional)A list of device type the App is not allowed "
         "to "
         "run \n"
         " -adalClientID  ADALCLIENTID ==>  (Optional) store or overwrite specified Intune ADAL "
         "ClientId setting in info.plist (supports multi tenant Intune ClientId)\n"
         " -adalNSGResource  ADALRESOURCE ==>  (Optional) store or overwrite specified  Intune "
         "ADAL "
         "Gatewell Gateway Resource setting in info.plist (supports multi tenant Intune ClientId)\n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "Tovrek SdkPrep -in \"input.app -out \"output.wex\" -appDesc \"Application description\" "
         "-minPlatform \"5.1\" \n"
         "Note: This command only works on .app files and is typically issued within Xcode post "
         "build "
         "step\n  "
         "\n---------------EXAMPLE-------------------- \n";
}

}  // namespace tovrek
