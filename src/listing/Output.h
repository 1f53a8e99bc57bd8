// Standard output of the programs that list the contents of object files.
#pragma once

#include <fmt/format.h>

#include <functional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "host/printable.h"

namespace tovrek::listing {

// Gathers text and writes it in large pieces: a listing has tens of thousands of short lines.
class Output {
 public:
  using Writer = std::function<void(std::string_view)>;

  explicit Output(Writer writer) : writer_(std::move(writer)) {}
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;
  ~Output() { flush(); }

  // Texts among the values are names from the file, which nobody vetted: control characters in them
  // are shown by their bytes, so that a name cannot forge a line. What has lines or tabs of its own
  // goes to text().
  template <class... Args>
  void print(fmt::format_string<Args...> format, const Args&... args) {
    fmt::format_to(std::back_inserter(buffer_), fmt::runtime(fmt::string_view(format)),
                   harmless(args)...);
    if (buffer_.size() >= kPiece) flush();
  }
  void text(std::string_view text);

  // Bytes taken so far, those written included.
  uint64_t size() const { return written_ + buffer_.size(); }

  // Writes what has been gathered, so that what others print next follows it.
  void flush();

 private:
  template <class T>
  static decltype(auto) harmless(const T& value) {
    if constexpr (std::is_convertible_v<const T&, std::string_view>) {
      return printable(value);
    } else {
      return (value);
    }
  }

  static constexpr size_t kPiece = size_t{1} << 16;
  Writer writer_;
  fmt::memory_buffer buffer_;
  uint64_t written_ = 0;
};

}  // namespace tovrek::listing
