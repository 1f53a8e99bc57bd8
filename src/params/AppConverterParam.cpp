#include "params/AppConverterParam.h"

#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {

AppConverterParam::AppConverterParam() {
  logFile = joinPath(programFolder(), "logs/Orvane.log");
}

AppConverterParam::AppConverterParam(const AppConverterParam& other) : ConverterSettings(other) {}

bool AppConverterParam::checkIfStringisHex(std::string_view text) {
  return text.find_first_of("0123456789ABCDEFabcdef") != std::string_view::npos;
}

}  // namespace tovrek
