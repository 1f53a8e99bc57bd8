#include "programs/tovrek/SignCommand.h"

#include <fmt/format.h>

#include "host/paths.h"
#include "programs/tovrek/help.h"

namespace tovrek {
namespace {

OptionTable signOptions() {
  using R = Request;
  return withCommon({
      valueOption("-Cert", &R::certificate, "certificate ({})"),
      valueOption("-Profile", &R::provisionProfile, "provisionProfile ({})"),
      yesNoOption("-reSign", &R::isResign, "resign ({})"),
      yesNoOption("-wexResign", &R::isWEXSigning, "wexResign ({})"),
      flagOption("-upgrade", &R::preserveUpgradeCompatibility, true, "Upgrade "),
  });
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

bool finishSign(Request& request, ErrorText* error) {
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

}  // namespace

SignCommand::SignCommand() : WexToolkitCommand("Sign", signOptions(), signHelp, finishSign) {}

}  // namespace tovrek
