// Explaining codes and texts that users meet.
#pragma once

#include <string>

namespace tovrek::inspect {

// About a finding's code, a number of the engine, or a text that the toolkit prints; for a
// terminal. Empty when nothing is known of it.
std::string explanationOf(const std::string& codeOrText);

}  // namespace tovrek::inspect
