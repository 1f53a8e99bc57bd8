#include "package/XMParserHelper.h"

#include <fmt/format.h>

#include "log/SystemLog.h"

namespace tovrek {

bool XMParserHelper::initXMLParser(std::string_view data) {
  readXml(data, *this);
  return !parserError_;
}

void XMParserHelper::parseError(std::string_view message) {
  parserError_ = message;
  if (!message.empty()) logger_.logError(message);
}

void XMParserHelper::validationError(std::string_view message) {
  systemLog(fmt::format("validationError = {}", message));
  parserError_ = message;
}

}  // namespace tovrek
