#include "converter/AppConverter.h"

#include <fmt/format.h>

#include <utility>

#include "converter/Run.h"
#include "converter/input.h"
#include "converter/package_resign_flow.h"
#include "converter/resign_flow.h"
#include "converter/sdk_prep_flow.h"
#include "converter/set_info_flow.h"
#include "converter/wrap_flow.h"
#include "log/SystemLog.h"
#include "package/app_links.h"

namespace tovrek {

using converter::Run;

AppConverter::AppConverter(const Request& request, RunContext& context, TKProgressor& progressor,
                           std::string contentPath, UnpackedInput input)
    : request_(request),
      context_(context),
      progressor_(progressor),
      contentPath_(std::move(contentPath)),
      input_(std::move(input)) {
  context_.loggers.toolkit.logDetailed("ContentPath is " + contentPath_);
}

void AppConverter::initializeLogging(const Request& request, RunContext& context) {
  for (WrapperLogger* logger : {&context.loggers.toolkit, &context.loggers.manifest}) {
    logger->setLogDisplayLevel(request.logDisplayLevel);
    logger->setLogFileWriteLevel(request.logWriteLevel);
    logger->setLogFilename(request.logFile);
  }
}

bool AppConverter::unzipIpaAndProcessConverterParameters(const Request& request,
                                                         const RunContext& context,
                                                         UnpackedInput* input, ErrorText* error) {
  input->ipa = converter::unzipIpa(request.inputFile, &input->directory, error, context);
  if (!input->ipa) return false;

  // What has links that are not accepted is not looked into: the conversion refuses it first.
  const std::string& app = input->ipa->appPath();
  const std::string scratch = input->directory->tempDir() + "/";
  const bool unpacked = app.starts_with(scratch);
  const bool judged = unpacked ? refuseLinks(input->directory->tempDir(),
                                             app.substr(scratch.size()), nullptr, nullptr)
                               : refuseLinks(app, "", nullptr, nullptr);
  if (!judged) return true;

  ErrorText previous;
  const auto bundle = UnzippedIpa::appBundleForUnzippedIpa(input->ipa.get(), &previous);
  if (!bundle) {
    return fail(error, fmt::format("appBundle not found ({}). Error:{}", previous.text(),
                                   "Cannot find app package. Please choose a valid input file."));
  }
  converter::BundleInspection inspection;
  if (!checkIfAppBundle(context, *bundle, &inspection, error)) return false;
  if (!request.isSDK && !inspection.hasWEXSDKFramework) return true;
  if (!request.isSDK) systemLog("WARNING:: INPUT file is a SDK app.");
  systemLog("CRITICAL:: Wrap SDK app with this command is unsupported.");
  return fail(error,
              "To wrap, choose a valid file that does not include the WEX framework. Wrapping an "
              "SDK app with this tool is not supported.");
}

Run AppConverter::newRun() {
  return Run(request_, context_, progressor_, contentPath_, std::move(input_));
}

bool AppConverter::CreatePackage(ErrorText* error) {
  Run run = newRun();
  if (request_.command == CommandWord::kSetInfo || (request_.isSDK && request_.isUpdate)) {
    return updatePackage(run, error);
  }
  if (request_.isResign) return resignApp(run, error);
  return request_.isSDK ? wrapSdkApp(run, error) : wrapApp(run, error);
}

bool AppConverter::CreatePackageFromWex(ErrorText* error) {
  Run run = newRun();
  return resignPackage(run, error);
}

bool AppConverter::EmbedResourcesIntoApp(ErrorText* error) {
  Run run = newRun();
  return prepareSdkApp(run, error);
}

}  // namespace tovrek
