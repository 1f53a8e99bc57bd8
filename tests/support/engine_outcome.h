// What an engine operation ends with, as a comparable text.
#pragma once

#include <exception>
#include <string>

#include "engine/MachORebuildErrors.h"

namespace tovrek::test {

// "ok", a code in digits, or the engine's own words.
template <class Operation>
std::string outcomeOf(Operation&& operation) {
  try {
    operation();
    return "ok";
  } catch (MachORebuildErrors code) {
    return std::to_string(static_cast<int>(code));
  } catch (const std::exception& failure) {
    return failure.what();
  }
}

}  // namespace tovrek::test
