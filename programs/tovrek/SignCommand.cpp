#include "programs/tovrek/SignCommand.h"

#include <fmt/format.h>

#include "host/paths.h"

namespace tovrek {
namespace {

OptionTable options() {
  using P = ConverterSettings;
  return {
      valueOption("-Cert", &P::certificate, "certificate ({})"),
      valueOption("-Profile", &P::provisionProfile, "provisionProfile ({})"),
      valueOption("-in", &P::inputFile, "inputFile ({})", Form::kStandardizedPath),
      valueOption("-out", &P::outputFile, "outputFile ({})", Form::kTrimmed),
      valueOption("-logFile", &P::logFile, "logFile name ({})"),
      levelOption("-logWriteLevel", &P::logWriteLevel),
      levelOption("-logDisplayLevel", &P::logDisplayLevel),
      yesNoOption("-reSign", &P::isResign, "resign ({})"),
      yesNoOption("-wexResign", &P::isWEXSigning, "wexResign ({})"),
      flagOption("-upgrade", &P::preserveUpgradeCompatibility, true, "Upgrade "),
  };
}

bool failConflict(ErrorText* error, std::string_view one, std::string_view other) {
  return fail(error, fmt::format("Command line argument ({}) conflicts with ({}).", one, other));
}

bool checkKinds(const AppConverterParam& param, ErrorText* error) {
  return !(param.isResign && param.isWEXSigning) || failConflict(error, "-resign", "-wexResign");
}

// "/a/b/app_Resign.ipa" for "/a/b/app.ipa".
std::string outputBeside(const std::string& input) {
  const std::string name = deletingPathExtension(lastPathComponent(input));
  return joinPath(containingFolder(input), fmt::format("{}_Resign.{}", name, pathExtension(input)));
}

}  // namespace

SignCommand::SignCommand() : WexToolkitCommand("Sign", options(), helpText) {}

bool SignCommand::finish(AppConverterParam& param, ErrorText* error) {
  if (!checkKinds(param, error)) return false;
  if (param.isResign && param.isSignCommand && !param.isWrapCommand && param.isSDK) {
    return failConflict(error, "-resign", "-sdk");
  }
  if (!param.inputFile) return failMissingArgument(error, "-in");
  if (!param.outputFile) param.outputFile = outputBeside(*param.inputFile);
  const std::string extension = pathExtension(*param.inputFile);
  if (equalsIgnoringCase(extension, "ipa")) param.isResign = true;
  if (equalsIgnoringCase(extension, "wex")) param.isWEXSigning = true;
  // The input's kind may contradict the option.
  return checkKinds(param, error);
}

std::string SignCommand::helpText() {
  return "--------------------------------------------------------- \n"
         "Sign Command \n"
         "Tovrek Sign -in INPUTFILE -out OUTPUTFILE -Cert CERTIFICATE -Profile PROFILE \n\n"
         " -Cert CERTIFICATE          ==>  (Required) Name of the certificate to sign the app "
         "with\n"
         " -Profile PROFILE           ==>  (Required) Name of the provisioning profile to sign the "
         "app with\n"
         " -in INPUTFILE              ==>  (Required) Name of the input app file, ipa/wex file\n"
         " -out OUTPUTFILE            ==>  (Optional) Name of the output app, ipa(if ipa is "
         "input)/wex file\n"
         " -upgrade                   ==>  (Optional) Preserve in-place upgrade capabilty (not "
         "recommended for new apps)\n"
         "\n---------------EXAMPLE-------------------- \n\n"
         "Sign -Cert \"iPhone Distribution: Example Corporation\" -Profile "
         "\"distributionprovisioanl.mobileprovision\" -in \"/Users/admin/Archive/sample.ipa\"\n"
         "\n---------------EXAMPLE-------------------- \n"
         "--------------------------------------------------------- \n\n";
}

}  // namespace tovrek
