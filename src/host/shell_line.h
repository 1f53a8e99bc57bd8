// Command lines that need no shell to be understood.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tovrek {

// The words of a command line that /bin/sh would take as one command, with nothing to expand,
// redirect or connect. None for every other line, and for one in doubt.
std::optional<std::vector<std::string>> plainWords(std::string_view line);

}  // namespace tovrek
