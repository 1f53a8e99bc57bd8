#include "programs/tovrek/result_output.h"

#include <fmt/format.h>

#include "programs/tovrek/constants.h"

namespace tovrek {
namespace {

std::string successNote(const Request& request) {
  if (request.isUpdate) return "";
  if (!request.isSDK) return "Note: Generated a .wex package.";
  if (request.packageApp) {
    return "Note: Generated a .wex package, embedded with ipa compiled with Telvo SDK framework.";
  }
  return "Note: Generated two files, a .wex package (for uploading to Nolvara) and a .ipa file "
         "(for uploading to App Store)";
}

}  // namespace

void reportError(const std::string& text, const WrapperLogger& log, const Streams& streams) {
  streams.error(fmt::format("\n\n{}\n{}\n", printableLines(text), kSeparatorLine));
  log.logError(fmt::format("{}\n{}\n", text, kSeparatorLine), LineBreaks::kKept);
}

int writeOutResultWithErrorStr(bool success, const std::string* error, const Request& request,
                               const WrapperLogger& log, const Streams& streams) {
  if (success) {
    const std::string text =
        error != nullptr
            ? fmt::format("\n{}\n\n{}\n\n\n\n", printableLines(*error), successNote(request))
            : fmt::format("\n********{}********\n\n{}\n\n\n\n",
                          "Orvane mobile app was created successfully.", successNote(request));
    streams.out(text);
    log.logBasic(text, LineBreaks::kKept);
    return 0;
  }
  if (error == nullptr) return -1;
  reportError(*error, log, streams);
  return -2;
}

}  // namespace tovrek
