// What a command said at its end.
#pragma once

#include <string>
#include <string_view>

namespace tovrek::batch {

// The text that a run ended with, out of all that it printed: the last block that a line of
// hyphens ends, unless it is the name of a stage. Empty when there is none.
std::string reportedText(std::string_view printed);
// The same, else the last line that is not empty. Empty when it said nothing.
std::string endingText(std::string_view printed);

// The last bytes of a file; empty when it cannot be read.
std::string endOfFile(const std::string& path, size_t most);

}  // namespace tovrek::batch
