// The error slot that operations of the toolkit report through.
#pragma once

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tovrek {

// Empty, or one text for the user. A caller that does not care passes no slot (nullptr); the
// helpers below accept that. A slot may hold a warning after a success, so callers judge an
// operation by its result and never by the slot.
class ErrorText {
 public:
  // True when a text was put in, be it of no letters.
  bool isSet() const { return text_.has_value(); }
  // The text, or the empty string when none is set.
  const std::string& text() const {
    static const std::string kNone;
    return text_ ? *text_ : kNone;
  }

  void set(std::string text) {
    if (text_ && *text_ != text) mention(std::move(*text_));
    text_ = std::move(text);
  }
  void setIfEmpty(std::string text) {
    if (!text_) {
      text_ = std::move(text);
    } else if (*text_ != text) {
      mention(std::move(text));
    }
  }
  void clear() { *this = ErrorText(); }

  // What the program had to say for whose failure the text stands: its end, 4096 bytes at most.
  void setCause(std::string_view said) {
    constexpr size_t kMost = 4096;
    cause_ = said.substr(said.size() - std::min(said.size(), kMost));
  }
  const std::string& cause() const { return cause_; }

  // Warnings beside the text, each once: those that gave way to it, or came when it was there. Only
  // the first ones are kept.
  void mention(std::string warning) {
    constexpr size_t kMost = 32;
    if (mentioned_.size() == kMost || std::ranges::count(mentioned_, warning) != 0) return;
    mentioned_.push_back(std::move(warning));
  }
  const std::vector<std::string>& mentioned() const { return mentioned_; }

 private:
  std::optional<std::string> text_;
  std::string cause_;
  std::vector<std::string> mentioned_;
};

// Puts `text` into the slot when one was given. Answers false, so that a failing operation can
// end with `return fail(error, ...)`.
inline bool fail(ErrorText* error, std::string text) {
  if (error != nullptr) error->set(std::move(text));
  return false;
}

// The same for a failure of which a program has told.
inline bool fail(ErrorText* error, std::string text, std::string_view said) {
  fail(error, std::move(text));
  if (error != nullptr) error->setCause(said);
  return false;
}

// Puts `text` into the slot when one was given and holds nothing yet.
inline void warnIfEmpty(ErrorText* error, std::string text) {
  if (error != nullptr) error->setIfEmpty(std::move(text));
}

}  // namespace tovrek
