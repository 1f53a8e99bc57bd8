#include "programs/tovrek/SetInfoCommand.h"

#include "log/SystemLog.h"

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
  return {
      valueOption("-in", &R::inputFile, "inputFile ({})", Form::kStandardizedPath),
      valueOption("-out", &R::outputFile, "outputFile ({})", Form::kTrimmed),
      valueOption("-appDesc", &R::description, "package description ({})", Form::kWithoutQuotes),
      valueOption("-logFile", &R::logFile, "logFile name ({})"),
      levelOption("-logWriteLevel", &R::logWriteLevel),
      levelOption("-logDisplayLevel", &R::logDisplayLevel),
      valueOption("-minPlatform", &R::minPlatform, "minPlatform ({})"),
      valueOption("-maxPlatform", &R::maxPlatform, "maxPlatform ({})"),
      valueOption("-excludedDevices", &R::excludedDevices, "excludedDevices ({})"),
      storeUrlOption(),
      embedBundleOption(),
      valueOption("-policyXML", &R::appSpecificPolicyFilepath, "policyXML ({})",
                  Form::kStandardizedPath),
  };
}

}  // namespace

SetInfoCommand::SetInfoCommand() : WexToolkitCommand("SetInfo", setInfoOptions(), helpText) {}

bool SetInfoCommand::finish(Request& request, ErrorText*) {
  request.isUpdate = true;
  return true;
}

std::string SetInfoCommand::helpText() {
  return "--------------------------------------------------------- \n"
         "SetInfo Command \n"
         "Tovrek SetInfo -in INPUTFILE -out OUTPUTFILE -appDesc DESCRIPTION  \n\n"
         " -in INPUTFILE              ==>  (Required)Name of the input app file\n"
         " -out OUTPUTFILE            ==>  (Required)Name of the output wex file\n"
         " -appDesc DESCRIPTION       ==>  (Optional)Description of the package \n"
         " -minPlatform  VERSION      ==>  (Optional)Minimum supported platform version \n"
         " -maxPlatform  VERSION      ==>  (Optional)Maximum supported platform version \n"
         " -excludedDevices DEVICES   ==>  (Optional)A list of device type the App is not allowed "
         "to "
         "run \n"
         " -storeURL url              ==>  (Optional)http://adhoc.example.com/store/sample.ipa\n"
         " -embedBundle bundlePath    ==>  (Optional)/Users/admin/Documents/sample.ipa\n\n"
         " Note: -storeURL and -embedBundle options should not be used at the same time. \n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "SetInfo -in \"input.wex -out \"output.wex\"  -appDesc \"Application description\" "
         "-minPlatform \"7.1\" \n"
         "SetInfo -in \"input.wex -out \"output.wex\" -embedBundle "
         "\"/Users/admin/Documents/sample.ipa\" \n"
         "Note: This command only works on .wex files \n  "
         "\n---------------EXAMPLE-------------------- \n";
}

}  // namespace tovrek
