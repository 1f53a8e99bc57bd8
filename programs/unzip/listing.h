// What unzip shows of an archive without unpacking it.
#pragma once

#include <vector>

#include "archive/Entry.h"
#include "host/Streams.h"
#include "programs/unzip/UnzipOptions.h"

namespace tovrek::unzip {

// The table of "-l" and "-v", or the bare names of "-Z1".
void printListing(const std::vector<const archive::Entry*>& entries, const UnzipOptions& options,
                  const Streams& streams);

}  // namespace tovrek::unzip
