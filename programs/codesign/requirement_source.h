// Requirements as the command line gives them: "=TEXT", a file with text or a compiled form, or
// "-" for standard input.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"

namespace tovrek::codesign {

// One compiled requirement. None, with the reason, for what is none.
std::optional<std::string> readRequirement(const std::string& argument, ErrorText* error);

// A compiled requirement set.
std::optional<std::string> readRequirementSet(const std::string& argument, ErrorText* error);

}  // namespace tovrek::codesign
