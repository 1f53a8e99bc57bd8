#include "programs/tovrek/Toolkit.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "context/RunContext.h"
#include "converter/AppConverter.h"
#include "converter/validation.h"
#include "host/installation.h"
#include "host/limits.h"
#include "host/paths.h"
#include "host/terminal.h"
#include "host/utf8.h"
#include "host/version.h"
#include "log/SystemLog.h"
#include "log/TKProgressor.h"
#include "programs/tovrek/CommandLineProcessor.h"
#include "programs/tovrek/confine_run.h"
#include "programs/tovrek/constants.h"
#include "programs/tovrek/explain.h"
#include "programs/tovrek/result_output.h"
#include "settings/settings_file.h"
#include "tools/host_checks.h"

namespace tovrek::toolkit {
namespace {

int refuseArguments(const CommandLineProcessor& processor, const ErrorText& error,
                    const Streams& streams) {
  if (error.isSet()) streams.error(fmt::format("\n{}\n", error.text()));
  processor.printCommandUsage();
  // Behind the usage, which leaves nothing else on a screen.
  if (error.isSet()) explain({.text = trimmed(error.text())}, streams);
  return kExitBadInput;
}

// Texts go into documents and property lists, which hold UTF-8 alone.
const std::string* argumentNotInUtf8(const std::vector<std::string>& words) {
  const auto found = std::ranges::find_if_not(words, [](const auto& word) { return isUtf8(word); });
  return found == words.end() ? nullptr : &*found;
}

std::string escaped(std::string_view bytes) {
  std::string result;
  for (const char byte : bytes) {
    const auto value = static_cast<unsigned char>(byte);
    result += value >= 0x20 && value < 0x7f ? std::string(1, byte)
                                            : fmt::format("\\x{:02x}", unsigned{value});
  }
  return result;
}

// A log that cannot be had is told of once, not for each of its lines.
void prepareDefaultLog(Request& request) {
  ErrorText reason;
  if (request.logFile != defaultLogFile() || makeDefaultLogFolder(&reason)) return;
  systemLog(fmt::format("ERROR: failed to write file at {}, error is {}", *request.logFile,
                        reason.text()));
  request.logFile.reset();
}

bool showsProgress() {
  const char* choice = std::getenv("TOVREK_PROGRESS");
  return errorLineWidth().has_value() && (choice == nullptr || std::string_view(choice) != "0");
}

void setUpCommandLineLog(const Request& request, WrapperLogger& log) {
  log.setLogFilename(request.logFile);
  log.setLogDisplayLevel(request.logDisplayLevel);
  log.setLogFileWriteLevel(request.logWriteLevel);
}

// SDK inputs are unpacked by the action itself.
bool needsUnpacking(const Request& request) {
  const std::string extension = pathExtension(request.inputFile.value_or(""));
  return !request.isSDK &&
         (equalsIgnoringCase(extension, "ipa") || equalsIgnoringCase(extension, "app"));
}

bool runAction(AppConverter& converter, const Request& request, ErrorText* error) {
  if (request.isWEXSigning) return converter.CreatePackageFromWex(error);
  if (request.command == CommandWord::kSdkPrep) return converter.EmbedResourcesIntoApp(error);
  return converter.CreatePackage(error);
}

std::string appOf(const UnpackedInput& input) {
  return input.ipa ? input.ipa->appPath() : "";
}

int convert(const Request& request, UnpackedInput input, RunContext& context,
            TKProgressor& progressor, const Streams& streams) {
  const WrapperLogger& log = context.loggers.commandLine;
  const std::string contentPath = contentFolder();
  log.logBasic(fmt::format("Content path: {}", contentPath));
  // The app is looked at once more to explain a refusal.
  const std::shared_ptr<TemporaryDirectory> scratch = input.directory;
  const std::string appPath = appOf(input);
  AppConverter converter(request, context, progressor, contentPath, std::move(input));
  ErrorText error;
  const bool succeeded = runAction(converter, request, &error);
  // Never announced as a success: without a text nothing more is printed, and a warning that
  // came with a success is printed like an error.
  writeOutResultWithErrorStr(false, error.isSet() ? &error.text() : nullptr, request, log, streams);
  if (succeeded) {
    explainWarnings(error, streams);
  } else if (error.isSet()) {
    explain({error.text(), error.cause(), &request, &context, request.certificate, appPath},
            streams);
  }
  return succeeded ? kExitSuccess : kExitConversionFailed;
}

// The request is final from here on.
int runRequest(const Request& request, RunContext& context, TKProgressor& progressor,
               const Streams& streams) {
  UnpackedInput input;
  ErrorText error;
  if (needsUnpacking(request) &&
      !AppConverter::unzipIpaAndProcessConverterParameters(request, context, &input, &error)) {
    reportError(error.text(), context.loggers.commandLine, streams);
    explain({error.text(), error.cause(), &request, &context, request.certificate, appOf(input)},
            streams);
    return context.settings.failUnpacking ? kExitConversionFailed : kExitSuccess;
  }
  return convert(request, std::move(input), context, progressor, streams);
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  streams.out(fmt::format("\n{}, version {}.{} (Env:{})\n\n", kToolTitle, kToolVersion, kToolBuild,
                          kEnvironment));
  if (!verifyIfOSVerisonIsMavericksandAbove()) {
    constexpr char kTooOld[] = "This application requires OS X 10.9 (Mavericks) or later.";
    streams.error(fmt::format("\n{}\n", kTooOld));
    explain({.text = kTooOld}, streams);
    return kExitBadInput;
  }

  if (arguments.ownsProcess) explainLackOfMemory();
  RunContext context;
  context.showsProgress = showsProgress();
  const WrapperLogger& log = context.loggers.commandLine;
  if (const std::string* word = argumentNotInUtf8(arguments.words)) {
    const std::string text = "ERROR: This argument is not valid UTF-8: " + escaped(*word);
    reportError(text, log, streams);
    explain({.text = text}, streams);
    return kExitBadInput;
  }
  CommandLineProcessor processor(context.keychain);
  ErrorText error;
  std::optional<Request> request = processor.processCommandLine(arguments.words, &error);
  if (processor.helpShown()) return kExitSuccess;
  if (!request) return refuseArguments(processor, error, streams);

  // Before the run touches anything, its log file included.
  error.clear();
  context.loggers.commandLine.setLogDisplayLevel(request->logDisplayLevel);
  if (!readSettings(&context.settings, &error)) {
    reportError(error.text(), log, streams);
    explain({.text = error.text()}, streams);
    return kExitBadInput;
  }
  putInForce(context.settings.limits);
  prepareDefaultLog(*request);
  setUpCommandLineLog(*request, context.loggers.commandLine);
  CLProgressor progressor(context.loggers.commandLine);
  AppConverter::initializeLogging(*request, context);
  progressor.SetProgress("Validating input parameters...");
  const std::optional<std::string> certificate = request->certificate;
  if (!validate(*request, context, &error)) {
    reportError(error.text(), log, streams);
    explain({error.text(), error.cause(), &*request, &context, certificate, ""}, streams);
    return kExitBadInput;
  }
  // Before anything of the input is touched.
  if (arguments.ownsProcess) confineRun(*request, context);
  return runRequest(*request, context, progressor, streams);
}

int reportUncaught(const char* reason, const Streams& streams) {
  const std::string text = reason != nullptr ? fmt::format("The run was given up: {}", reason)
                                             : "The run was given up for an unknown reason";
  streams.error(fmt::format("\n{}\n", text));
  explain({.text = text}, streams);
  return kExitConversionFailed;
}

}  // namespace tovrek::toolkit
