// Whether an archive from outside keeps within the limits: a small file is not to fill the disk, or
// make folders that no path reaches.
#pragma once

#include <span>

#include "archive/Entry.h"
#include "host/ErrorText.h"
#include "host/limits.h"

namespace tovrek::archive {

// Whether the entries may be unpacked; the text names the limit that they pass.
bool isWithin(const Limits& limits, std::span<const Entry* const> entries, ErrorText* error);

}  // namespace tovrek::archive
