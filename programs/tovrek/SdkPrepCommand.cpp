#include "programs/tovrek/SdkPrepCommand.h"

#include <fmt/format.h>

#include <array>
#include <cstdlib>
#include <utility>

#include "host/paths.h"
#include "log/SystemLog.h"
#include "programs/tovrek/help.h"

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
  return withCommon({
      valueOption("-packageId", &R::packageId, "packageId  ({})", Form::kWithoutQuotes),
      valueOption("-appDesc", &R::description, "package description ({})", Form::kWithoutQuotes),
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
  });
}

}  // namespace

SdkPrepCommand::SdkPrepCommand()
    : WexToolkitCommand("SdkPrep", sdkPrepOptions(), sdkPrepHelp, markUpdate) {}

bool SdkPrepCommand::refuseUnknown(const std::string& argument, ErrorText* error) {
  // Build logs show the system log; the message must be found there too.
  ErrorText text;
  WexToolkitCommand::refuseUnknown(argument, &text);
  systemLog(text.text());
  return fail(error, text.text());
}

}  // namespace tovrek
