#include "programs/tovrek/SignCommand.h"

#include <fmt/format.h>

#include "host/paths.h"

namespace tovrek {
namespace {

OptionTable signOptions() {
  using R = Request;
  return {
      valueOption("-Cert", &R::certificate, "certificate ({})"),
      valueOption("-Profile", &R::provisionProfile, "provisionProfile ({})"),
      valueOption("-in", &R::inputFile, "inputFile ({})", Form::kStandardizedPath),
      valueOption("-out", &R::outputFile, "outputFile ({})", Form::kTrimmed),
      valueOption("-logFile", &R::logFile, "logFile name ({})"),
      levelOption("-logWriteLevel", &R::logWriteLevel),
      levelOption("-logDisplayLevel", &R::logDisplayLevel),
      yesNoOption("-reSign", &R::isResign, "resign ({})"),
      yesNoOption("-wexResign", &R::isWEXSigning, "wexResign ({})"),
      flagOption("-upgrade", &R::preserveUpgradeCompatibility, true, "Upgrade "),
  };
}

bool failConflict(ErrorText* error, std::string_view one, std::string_view other) {
  return fail(error, fmt::format("Command line argument ({}) conflicts with ({}).", one, other));
}

bool checkKinds(const Request& request, ErrorText* error) {
  return !(request.isResign && request.isWEXSigning) ||
         failConflict(error, "-resign", "-wexResign");
}

// "/a/b/app_Resign.ipa" for "/a/b/app.ipa".
std::string outputBeside(const std::string& input) {
  const std::string name = deletingPathExtension(lastPathComponent(input));
  return joinPath(containingFolder(input), fmt::format("{}_Resign.{}", name, pathExtension(input)));
}

}  // namespace

SignCommand::SignCommand() : WexToolkitCommand("Sign", signOptions(), helpText) {}

bool SignCommand::finish(Request& request, ErrorText* error) {
  if (!checkKinds(request, error)) return false;
  if (request.isResign && request.isSDK) return failConflict(error, "-resign", "-sdk");
  if (!request.inputFile) return failMissingArgument(error, "-in");
  if (!request.outputFile) request.outputFile = outputBeside(*request.inputFile);
  const std::string extension = pathExtension(*request.inputFile);
  if (equalsIgnoringCase(extension, "ipa")) request.isResign = true;
  if (equalsIgnoringCase(extension, "wex")) request.isWEXSigning = true;
  // The input's kind may contradict the option.
  return checkKinds(request, error);
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
