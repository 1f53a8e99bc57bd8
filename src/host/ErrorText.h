// The error slot that operations of the toolkit report through.
#pragma once

#include <optional>
#include <string>
#include <utility>

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

  void set(std::string text) { text_ = std::move(text); }
  void setIfEmpty(std::string text) {
    if (!text_) text_ = std::move(text);
  }
  void clear() { text_.reset(); }

 private:
  std::optional<std::string> text_;
};

// Puts `text` into the slot when one was given. Answers false, so that a failing operation can
// end with `return fail(error, ...)`.
inline bool fail(ErrorText* error, std::string text) {
  if (error != nullptr) error->set(std::move(text));
  return false;
}

// Puts `text` into the slot when one was given and holds nothing yet.
inline void warnIfEmpty(ErrorText* error, std::string text) {
  if (error != nullptr) error->setIfEmpty(std::move(text));
}

}  // namespace tovrek
