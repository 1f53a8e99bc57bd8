// Progress sinks: one text per stage of a conversion.
#pragma once

#include <string_view>

#include "log/WrapperLogger.h"

namespace tovrek {

// The base reports nowhere.
class TKProgressor {
 public:
  explicit TKProgressor(WrapperLogger& logger) : logger_(logger) {}
  virtual ~TKProgressor() = default;
  virtual void SetProgress(std::string_view /*stage*/) {}

 protected:
  WrapperLogger& logger_;
};

// Prints each stage as a banner on standard output, at any log level, and logs the same block
// as a basic message.
class CLProgressor : public TKProgressor {
 public:
  using TKProgressor::TKProgressor;
  void SetProgress(std::string_view stage) override;
};

}  // namespace tovrek
