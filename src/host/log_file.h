// Log files, to which several programs may write at once.
#pragma once

#include <string>
#include <string_view>

#include "host/ErrorText.h"

namespace tovrek {

// Appends `text` in one go, so that those of two programs do not mix, to a file that is made where
// there is none. Only a regular file of this user is written to: whoever may put something under
// the name could otherwise have other files written to, or the program wait for ever.
bool appendToLog(const std::string& path, std::string_view text, ErrorText* error = nullptr);

}  // namespace tovrek
