#include "programs/tovrek/result_output.h"

#include <fmt/format.h>

#include "log/SystemLog.h"
#include "log/module_loggers.h"
#include "programs/tovrek/constants.h"

namespace tovrek {
namespace {

std::string successNote(const AppConverterParam& param) {
  if (param.isUpdate) return "";
  if (!param.isSDK) return "Note: Generated a .wex package.";
  if (param.packageApp) {
    return "Note: Generated a .wex package, embedded with ipa compiled with Telvo SDK framework.";
  }
  return "Note: Generated two files, a .wex package (for uploading to Nolvara) and a .ipa file "
         "(for uploading to App Store)";
}

}  // namespace

void reportError(const std::string& text) {
  printError(fmt::format("\n\n{}\n{}\n", text, kSeparatorLine));
  Global_Commandline_Logger().logError(fmt::format("{}\n{}\n", text, kSeparatorLine));
}

int writeOutResultWithErrorStr(bool success, const std::string* error,
                               const AppConverterParam& param) {
  if (success) {
    const std::string text =
        error != nullptr
            ? fmt::format("\n{}\n\n{}\n\n\n\n", *error, successNote(param))
            : fmt::format("\n********{}********\n\n{}\n\n\n\n",
                          "Orvane mobile app was created successfully.", successNote(param));
    printOut(text);
    Global_Commandline_Logger().logBasic(text);
    return 0;
  }
  if (error == nullptr) return -1;
  reportError(*error);
  return -2;
}

}  // namespace tovrek
