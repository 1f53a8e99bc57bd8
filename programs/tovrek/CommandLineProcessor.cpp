#include "programs/tovrek/CommandLineProcessor.h"

#include <fmt/format.h>

#include <array>
#include <memory>
#include <utility>

#include "host/host_info.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "programs/tovrek/SdkPrepCommand.h"
#include "programs/tovrek/SetInfoCommand.h"
#include "programs/tovrek/SignCommand.h"
#include "programs/tovrek/WrapCommand.h"
#include "programs/tovrek/constants.h"
#include "tools/host_checks.h"

namespace tovrek {
namespace {

constexpr std::array<std::pair<const char*, CommandWord>, 5> kCommandWords = {{
    {"Wrap", CommandWord::kWrap},
    {"Sign", CommandWord::kSign},
    {"SetInfo", CommandWord::kSetInfo},
    {"GetInfo", CommandWord::kGetInfo},
    {"SdkPrep", CommandWord::kSdkPrep},
}};

CommandWord commandWordFor(std::string_view argument) {
  for (const auto& [text, word] : kCommandWords) {
    if (equalsIgnoringCase(argument, text)) return word;
  }
  return CommandWord::kNone;
}

constexpr char kFirstWordMissing[] =
    "First command option is missing ex: \"Wrap\" ,\"Sign\" ,\" SetInfo\",\"GetInfo\" Command "
    "line should start with one of these options \"Wrap\" ,\"Sign\" ,\" SetInfo\",\"GetInfo\"";
constexpr char kSeveralWords[] =
    "Multiple command options are not allowed , Choose one of these i.e \"Wrap\" ,\"Sign\" ,\" "
    "SetInfo\",\"GetInfo\" ";
constexpr char kToolsBeingInstalled[] =
    "You may need to install the command line tools. We have invoked the install of command line "
    "tool please select INSTALL and proceed.";
constexpr char kToolsToBeInstalled[] =
    "You may need to install the command line tools. Please visit "
    "https://developer.apple.com/downloads .";

bool isEmpty(const std::optional<std::string>& text) {
  return !text || text->empty();
}

std::unique_ptr<WexToolkitCommand> commandFor(CommandWord word) {
  switch (word) {
    case CommandWord::kWrap:
      return std::make_unique<WrapCommand>();
    case CommandWord::kSign:
      return std::make_unique<SignCommand>();
    case CommandWord::kSetInfo:
      return std::make_unique<SetInfoCommand>();
    case CommandWord::kSdkPrep:
      return std::make_unique<SdkPrepCommand>();
    case CommandWord::kNone:
    case CommandWord::kGetInfo:
      break;
  }
  return nullptr;
}

bool checkRequiredArguments(const Request& request, ErrorText* error) {
  const bool isWrap = request.command == CommandWord::kWrap;
  const bool isSign = request.command == CommandWord::kSign;
  if (!request.isUpdate && (isWrap || isSign)) {
    if (!request.certificate) return failMissingArgument(error, "-Cert");
    if (!request.provisionProfile) return failMissingArgument(error, "-Profile");
  }
  if (request.isUpdate && request.command != CommandWord::kSetInfo && !request.appStoreUrl) {
    return failMissingArgument(error, "-storeURL");
  }
  if (!request.inputFile) return failMissingArgument(error, "-in");
  if (!isWrap && !request.outputFile) return failMissingArgument(error, "-out");
  if (isWrap && !request.outputFile && !request.outputBundleFile) {
    return failMissingArgument(error, "-out/-outBundle");
  }
  if (request.isUpdate && request.command == CommandWord::kSdkPrep && !request.entitlementsPath) {
    return failMissingArgument(error, "-entitlements");
  }
  return true;
}

bool checkSdkInput(const Request& request, ErrorText* error) {
  const std::string extension = pathExtension(*request.inputFile);
  if (request.appMode && request.command == CommandWord::kWrap &&
      equalsIgnoringCase(extension, "ipa") && !request.isSDK && isEmpty(request.outputFile) &&
      isEmpty(request.outputBundleFile)) {
    return fail(error,
                "-sdk is not set to YES when -in parameter is ipa and -appMode is specified");
  }
  if (equalsIgnoringCase(extension, "app") && !request.isSDK) {
    return fail(error, "-sdk is not set to YES when -in parameter is app");
  }
  return true;
}

}  // namespace

std::optional<Request> CommandLineProcessor::processCommandLine(
    const std::vector<std::string>& arguments, ErrorText* error) {
  request_ = Request();
  words_.clear();
  helpShown_ = false;

  if (!checkDeveloperTools(error)) return std::nullopt;
  const std::string folder = programFolder();
  request_.wexToolKitPath = folder.empty() ? kFallbackToolkitFolder : folder;

  if (!matchCommandWord(arguments, error) || !runCommand(arguments, error)) return std::nullopt;
  if (!checkRequiredArguments(request_, error) || !checkSdkInput(request_, error)) {
    return std::nullopt;
  }
  return request_;
}

bool CommandLineProcessor::checkDeveloperTools(ErrorText* error) {
  const bool installed = verifyCommandLineToolisInstalled([&](bool isInstalled, bool mayInstall) {
    if (isInstalled) return;
    fail(error, mayInstall ? kToolsBeingInstalled : kToolsToBeInstalled);
    if (mayInstall) installCommandLineTools();
  });
  if (!installed) systemLog(" Returning as no command line tools are installed");
  return installed;
}

bool CommandLineProcessor::matchCommandWord(const std::vector<std::string>& arguments,
                                            ErrorText* error) {
  std::set<std::string> seen;
  for (size_t i = 0; i < arguments.size(); ++i) {
    if (!checkArgument(arguments[i], i == 0, &seen, error)) return false;
  }
  return true;
}

// The command word is the first argument and stands nowhere else, not even as a value; and no
// argument is given twice, values included.
bool CommandLineProcessor::checkArgument(const std::string& argument, bool isFirst,
                                         std::set<std::string>* seen, ErrorText* error) {
  if (!seen->insert(argument).second) {
    return fail(error, fmt::format("Argument ({}) is given twice, please give all arguments only "
                                   "once.",
                                   argument));
  }
  const CommandWord word = commandWordFor(argument);
  if (word != CommandWord::kNone) words_.insert(word);
  if (!isFirst) return word == CommandWord::kNone || fail(error, kSeveralWords);
  request_.command = word;
  return word != CommandWord::kNone || fail(error, kFirstWordMissing);
}

bool CommandLineProcessor::runCommand(const std::vector<std::string>& arguments, ErrorText* error) {
  if (request_.command == CommandWord::kGetInfo) {
    return fail(error, fmt::format("Command ({}) not implemented.", "GetInfo"));
  }
  const auto command = commandFor(request_.command);
  // Without any argument no command runs, and the input is what is missing.
  if (!command) return failMissingArgument(error, "-in");
  const bool accepted = command->validateParams(arguments, error, request_, keychain_);
  helpShown_ = command->helpShown();
  return accepted;
}

}  // namespace tovrek
