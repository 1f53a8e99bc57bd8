#include "programs/tovrek/run_toolkit.h"

#include <fmt/format.h>

#include "converter/AppConverter.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "log/TKProgressor.h"
#include "log/module_loggers.h"
#include "programs/tovrek/CommandLineProcessor.h"
#include "programs/tovrek/constants.h"
#include "programs/tovrek/result_output.h"
#include "settings/settings_file.h"

namespace tovrek {
namespace {

void printBanner() {
  printOut(fmt::format("\n{}, version {}.{} (Env:{})\n\n", kToolTitle, kToolVersion, kToolBuild,
                       kEnvironment));
}

int refuseArguments(const CommandLineProcessor& processor, const ErrorText& error) {
  if (error.isSet()) printError(fmt::format("\n{}\n", error.text()));
  processor.printCommandUsage();
  return kExitBadInput;
}

void setUpLogging(const AppConverterParam& param) {
  WrapperLogger& logger = Global_Commandline_Logger();
  logger.setLogFilename(param.logFile);
  logger.setLogDisplayLevel(param.logDisplayLevel);
  logger.setLogFileWriteLevel(param.logWriteLevel);
}

// SDK inputs are unpacked by the action itself.
bool needsUnpacking(const AppConverterParam& param) {
  const std::string extension = pathExtension(param.inputFile.value_or(""));
  return !param.isSDK &&
         (equalsIgnoringCase(extension, "ipa") || equalsIgnoringCase(extension, "app"));
}

bool runAction(AppConverter& converter, const AppConverterParam& param, ErrorText* error) {
  if (param.isWEXSigning) return converter.CreatePackageFromWex(error);
  if (param.isSdkPrepCommand) return converter.EmbedResourcesIntoApp(error);
  return converter.CreatePackage(error);
}

int convert(AppConverterParam& param, TKProgressor& progressor, Settings settings) {
  const std::string contentPath = joinPath(programFolder(), "Data");
  Global_Commandline_Logger().logBasic(fmt::format("Content path: {}", contentPath));
  AppConverter converter(param, progressor, contentPath, settings);
  ErrorText error;
  const bool succeeded = runAction(converter, param, &error);
  // Never announced as a success: without a text nothing more is printed, and a warning that
  // came with a success is printed like an error.
  writeOutResultWithErrorStr(false, error.isSet() ? &error.text() : nullptr, param);
  return succeeded ? kExitSuccess : kExitConversionFailed;
}

}  // namespace

int runToolkit(const std::vector<std::string>& arguments) {
  printBanner();
  if (!AppConverterParam::verifyIfOSVerisonIsMavericksandAbove()) {
    printError("\nThis application requires OS X 10.9 (Mavericks) or later.\n");
    return kExitBadInput;
  }

  CommandLineProcessor processor;
  ErrorText parseError;
  AppConverterParam* param = processor.processCommandLine(arguments, &parseError);
  if (processor.helpShown()) return kExitSuccess;
  if (param == nullptr) return refuseArguments(processor, parseError);

  // Before the run touches anything, its log included.
  Settings settings;
  ErrorText badSettings;
  if (!readSettings(&settings, &badSettings)) {
    reportError(badSettings.text());
    return kExitBadInput;
  }
  setUpLogging(*param);
  CLProgressor progressor(Global_Commandline_Logger());
  AppConverter::initializeLogging(*param);
  progressor.SetProgress("Validating input parameters...");
  ErrorText invalid;
  if (!param->validate(&invalid)) {
    reportError(invalid.text());
    return kExitBadInput;
  }
  ErrorText notUnpacked;
  if (needsUnpacking(*param) &&
      !AppConverter::unzipIpaAndProcessConverterParameters(*param, nullptr, &notUnpacked)) {
    reportError(notUnpacked.text());
    return kExitSuccess;
  }
  return convert(*param, progressor, settings);
}

}  // namespace tovrek
