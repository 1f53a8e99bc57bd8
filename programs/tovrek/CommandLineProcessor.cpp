#include "programs/tovrek/CommandLineProcessor.h"

#include <fmt/format.h>

#include <array>
#include <utility>

#include "host/host_info.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "programs/tovrek/SdkPrepCommand.h"
#include "programs/tovrek/SetInfoCommand.h"
#include "programs/tovrek/SignCommand.h"
#include "programs/tovrek/WrapCommand.h"
#include "programs/tovrek/constants.h"

namespace tovrek {
namespace {

constexpr std::array<std::pair<const char*, FlagField>, 5> kCommandWords = {{
    {"Wrap", &ConverterSettings::isWrapCommand},
    {"Sign", &ConverterSettings::isSignCommand},
    {"SetInfo", &ConverterSettings::isSetInfoCommand},
    {"GetInfo", &ConverterSettings::isGetInfoCommand},
    {"SdkPrep", &ConverterSettings::isSdkPrepCommand},
}};

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

std::unique_ptr<WexToolkitCommand> commandFor(const AppConverterParam& param) {
  if (param.isWrapCommand) return std::make_unique<WrapCommand>();
  if (param.isSignCommand) return std::make_unique<SignCommand>();
  if (param.isSetInfoCommand) return std::make_unique<SetInfoCommand>();
  if (param.isSdkPrepCommand) return std::make_unique<SdkPrepCommand>();
  return nullptr;
}

}  // namespace

AppConverterParam* CommandLineProcessor::processCommandLine(
    const std::vector<std::string>& arguments, ErrorText* error) {
  converterParamTemp_ = std::make_unique<AppConverterParam>();
  converterParam_.reset();
  helpShown_ = false;

  if (!checkDeveloperTools(error)) return nullptr;
  const std::string folder = programFolder();
  converterParamTemp_->wexToolKitPath = folder.empty() ? kFallbackToolkitFolder : folder;

  if (!matchCommandWord(arguments, error) || !runCommand(arguments, error)) return nullptr;
  if (!checkRequiredArguments(error) || !checkSdkInput(error)) return nullptr;
  return converterParam_.get();
}

bool CommandLineProcessor::checkDeveloperTools(ErrorText* error) {
  const bool installed =
      AppConverterParam::verifyCommandLineToolisInstalled([&](bool isInstalled, bool mayInstall) {
        if (isInstalled) return;
        fail(error, mayInstall ? kToolsBeingInstalled : kToolsToBeInstalled);
        if (mayInstall) converterParamTemp_->installCommandLineTools();
      });
  if (!installed) systemLog(" Returning as no command line tools are installed");
  return installed;
}

bool CommandLineProcessor::matchCommandWord(const std::vector<std::string>& arguments,
                                            ErrorText* error) {
  std::set<std::string> seen;
  for (size_t i = 1; i < arguments.size(); ++i) {
    if (!checkArgument(arguments[i], i == 1, &seen, error)) return false;
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
  const int matches = setMatchingFlag(argument);
  if (isFirst && matches == 0) return fail(error, kFirstWordMissing);
  const int words = matches + (isFirst ? 0 : 1);
  return words == 1 || fail(error, kSeveralWords);
}

int CommandLineProcessor::setMatchingFlag(std::string_view argument) {
  int matches = 0;
  for (const auto& [word, flag] : kCommandWords) {
    if (!equalsIgnoringCase(argument, word)) continue;
    converterParamTemp_.get()->*flag = true;
    ++matches;
  }
  return matches;
}

bool CommandLineProcessor::runCommand(const std::vector<std::string>& arguments, ErrorText* error) {
  if (const auto command = commandFor(*converterParamTemp_)) {
    const bool accepted = command->validateParams(arguments, error, *converterParamTemp_);
    helpShown_ = command->helpShown();
    if (!accepted) return false;
    converterParam_ = std::make_unique<AppConverterParam>(*converterParamTemp_);
  }
  if (converterParamTemp_->isGetInfoCommand) {
    return fail(error, fmt::format("Command ({}) not implemented.", "GetInfo"));
  }
  return true;
}

bool CommandLineProcessor::checkRequiredArguments(ErrorText* error) const {
  // Without any argument no command ran, and the input is what is missing.
  if (!converterParam_) return failMissingArgument(error, "-in");
  const AppConverterParam& param = *converterParam_;
  if (!param.isUpdate && (param.isWrapCommand || param.isSignCommand)) {
    if (!param.certificate) return failMissingArgument(error, "-Cert");
    if (!param.provisionProfile) return failMissingArgument(error, "-Profile");
  }
  if (param.isUpdate && !param.isSetInfoCommand && !param.appStoreUrl) {
    return failMissingArgument(error, "-storeURL");
  }
  if (!param.inputFile) return failMissingArgument(error, "-in");
  if (!param.isWrapCommand && !param.outputFile) return failMissingArgument(error, "-out");
  if (param.isWrapCommand && !param.outputFile && !param.outputBundleFile) {
    return failMissingArgument(error, "-out/-outBundle");
  }
  if (param.isUpdate && param.isSdkPrepCommand && !param.entitlementsPath) {
    return failMissingArgument(error, "-entitlements");
  }
  return true;
}

bool CommandLineProcessor::checkSdkInput(ErrorText* error) const {
  const AppConverterParam& param = *converterParam_;
  const std::string extension = pathExtension(*param.inputFile);
  if (param.appMode && param.isWrapCommand && equalsIgnoringCase(extension, "ipa") &&
      !param.isSDK && isEmpty(param.outputFile) && isEmpty(param.outputBundleFile)) {
    return fail(error,
                "-sdk is not set to YES when -in parameter is ipa and -appMode is specified");
  }
  if (equalsIgnoringCase(extension, "app") && !param.isSDK) {
    return fail(error, "-sdk is not set to YES when -in parameter is app");
  }
  return true;
}

bool CommandLineProcessor::checkForCommandParam(std::string_view text) {
  for (const char* word : {"Wrap", "Sign", "GetInfo", "SetInfo"}) {
    if (equalsIgnoringCase(text, word)) return true;
  }
  return false;
}

}  // namespace tovrek
