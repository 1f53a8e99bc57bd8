#include "programs/tovrek/SetInfoCommand.h"

#include "log/SystemLog.h"
#include "programs/tovrek/help.h"

namespace tovrek {
namespace {

// Decides for one of the two operations, which exclude each other.
bool chooseOperation(OptionTarget& target, SdkOperation wanted) {
  const SdkOperation chosen = target.request.sdkOp;
  if (chosen != SdkOperation::kNone && chosen != wanted) {
    return fail(target.error,
                "Error: Parameter value is invalid. You can use either -storeURL or -embedBundle, "
                "but not both.");
  }
  target.request.sdkOp = wanted;
  return true;
}

Option storeUrlOption() {
  return {"-storeURL",
          [](OptionTarget& target) { return chooseOperation(target, SdkOperation::kStoreAddress); },
          [](OptionTarget& target, const std::string& value) {
            if (!takeStoreUrl(target, value, UrlForm::kEscaped)) return false;
            target.request.isSDK = true;
            return true;
          }};
}

Option embedBundleOption() {
  return {
      "-embedBundle",
      [](OptionTarget& target) { return chooseOperation(target, SdkOperation::kEmbeddedBundle); },
      [](OptionTarget& target, const std::string& value) {
        printTrace("embed bundle ");
        target.request.embedBundlePath = value;
        target.request.isSDK = true;
        return true;
      }};
}

OptionTable setInfoOptions() {
  using R = Request;
  return withCommon({
      valueOption("-appDesc", &R::description, "package description ({})", Form::kWithoutQuotes),
      valueOption("-minPlatform", &R::minPlatform, "minPlatform ({})"),
      valueOption("-maxPlatform", &R::maxPlatform, "maxPlatform ({})"),
      valueOption("-excludedDevices", &R::excludedDevices, "excludedDevices ({})"),
      storeUrlOption(),
      embedBundleOption(),
      valueOption("-policyXML", &R::appSpecificPolicyFilepath, "policyXML ({})",
                  Form::kStandardizedPath),
  });
}

}  // namespace

SetInfoCommand::SetInfoCommand()
    : WexToolkitCommand("SetInfo", setInfoOptions(), setInfoHelp, markUpdate) {}

}  // namespace tovrek
