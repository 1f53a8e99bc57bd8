// What the fuzz program does with signatures and requirements; the ordinary tests replay the same.
#pragma once

#include <string_view>

namespace tovrek::test {

// Takes any bytes as the text of a requirement, as a compiled one, and as an embedded signature.
// Aborts on a broken promise: what was read as a requirement must print as text that compiles to
// the same text again.
void fuzzSigning(std::string_view bytes);

}  // namespace tovrek::test
