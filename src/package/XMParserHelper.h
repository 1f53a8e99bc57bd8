// Tells whether some bytes are well-formed XML.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "formats/XmlReader.h"
#include "log/WrapperLogger.h"

namespace tovrek {

class XMParserHelper : private XmlEvents {
 public:
  // `logger` must outlive the object.
  explicit XMParserHelper(const WrapperLogger& logger) : logger_(logger) {}

  // True when no fault was found; a fault is logged and kept in parserError.
  bool initXMLParser(std::string_view data);

  const std::optional<std::string>& parserError() const { return parserError_; }

 private:
  void parseError(std::string_view message) override;
  void validationError(std::string_view message) override;
  const WrapperLogger& logger_;
  std::optional<std::string> parserError_;
};

}  // namespace tovrek
