// Failures that the engine words itself instead of giving a number.
#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace tovrek::macho {

// Leaves the engine's entry points unchanged; the front turns it into the user's message.
class EngineText : public std::runtime_error {
 public:
  // `said` is what a program had to say of it.
  explicit EngineText(const std::string& text, std::string said = {})
      : std::runtime_error(text), said_(std::move(said)) {}
  const std::string& said() const { return said_; }

 private:
  std::string said_;
};

template <class... Args>
[[noreturn]] void throwf(fmt::format_string<Args...> format, Args&&... args) {
  throw EngineText(fmt::format(format, std::forward<Args>(args)...));
}

}  // namespace tovrek::macho
