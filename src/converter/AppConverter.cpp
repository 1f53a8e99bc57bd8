#include "converter/AppConverter.h"

#include <fmt/format.h>

#include "converter/common.h"
#include "host/paths.h"
#include "log/SystemLog.h"
#include "log/module_loggers.h"
#include "package/AppBundle.h"
#include "package/TemporaryDirectory.h"
#include "package/UnzippedIpa.h"

namespace tovrek {

using namespace converter;

AppConverter::AppConverter(AppConverterParam& param, TKProgressor& progressor,
                           std::string contentPath, Settings settings)
    : converterParam_(param),
      progressor_(progressor),
      contentPath_(std::move(contentPath)),
      settings_(settings),
      isSDK_(param.isSDK),
      isUpdate_(param.isUpdate),
      isInputApp_(pathExtension(param.inputFile.value_or("")) == "app") {
  logger().logDetailed("ContentPath is " + contentPath_);
}

AppConverter::~AppConverter() = default;

void AppConverter::initializeLogging(const AppConverterParam& param) {
  for (WrapperLogger* logger : {&Global_TKLib_Logger(), &Global_ManifestLib_logger()}) {
    logger->setLogDisplayLevel(param.logDisplayLevel);
    logger->setLogFileWriteLevel(param.logWriteLevel);
    logger->setLogFilename(param.logFile);
  }
}

std::shared_ptr<UnzippedIpa> AppConverter::unzipIpa(const std::optional<std::string>& inputPath,
                                                    std::shared_ptr<TemporaryDirectory>* tempDir,
                                                    ErrorText* error) {
  fail(error, "Invalid input");
  if (!inputPath || tempDir == nullptr) return nullptr;
  if (!*tempDir) {
    *tempDir = std::make_shared<TemporaryDirectory>();
    if (!(*tempDir)->Create(error)) return nullptr;
  }
  // Unpacking clears the slot that it is given; ours keeps its text after a success.
  ErrorText reason;
  auto ipa = UnzippedIpa::UnzippedIpaObjForInputFile(*inputPath, tempDir->get(), &reason);
  if (!ipa && error != nullptr) *error = reason;
  return ipa;
}

bool AppConverter::unzipIpaAndProcessConverterParameters(
    AppConverterParam& param, std::shared_ptr<TemporaryDirectory> tempDir, ErrorText* error) {
  const auto ipa = unzipIpa(param.inputFile, &tempDir, error);
  if (!ipa) return false;
  param.unzippedIpaInstance = ipa;
  param.unzippedInputDirObj = tempDir;

  ErrorText previous;
  const auto bundle = UnzippedIpa::appBundleForUnzippedIpa(ipa.get(), &previous);
  if (!bundle) {
    return fail(error, fmt::format("appBundle not found ({}). Error:{}", previous.text(),
                                   "Cannot find app package. Please choose a valid input file."));
  }
  BundleInspection inspection;
  checkIfAppBundle(*bundle, &inspection);
  if (!param.isSDK && inspection.hasWEXSDKFramework) {
    param.isSDK = true;
    systemLog("WARNING:: INPUT file is a SDK app.");
  }
  if (!param.isSDK) return true;
  systemLog("CRITICAL:: Wrap SDK app with this command is unsupported.");
  return fail(error,
              "To wrap, choose a valid file that does not include the WEX framework. Wrapping an "
              "SDK app with this tool is not supported.");
}

std::string AppConverter::contentFile(std::string_view name) const {
  return joinPath(contentPath_, name);
}

}  // namespace tovrek
