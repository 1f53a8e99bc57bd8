// The platform's system log, as far as this program uses it.
#pragma once

#include <string_view>

#include "host/Streams.h"
#include "host/printable.h"

namespace tovrek {

// One entry on standard error: local time with milliseconds, "Tovrek[pid]", the text, a line
// end. Control characters in it are escaped. Standard output is flushed first and the entry written
// at once, so that a terminal shows both in order. Diagnostic lines of the pipeline ("console
// lines") use the same writer.
void systemLog(std::string_view text, LineBreaks breaks = LineBreaks::kEscaped);

}  // namespace tovrek
