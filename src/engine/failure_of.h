// A failure that is kept until it is known whether it counts.
#pragma once

#include <exception>

namespace tovrek {

// What the operation ended with; null after a success.
template <class Operation>
std::exception_ptr failureOf(Operation&& operation) {
  try {
    operation();
  } catch (...) {
    return std::current_exception();
  }
  return nullptr;
}

}  // namespace tovrek
