// What unzip does with the contents of entries besides writing them to files.
#pragma once

#include <string>
#include <vector>

#include "archive/ArchiveReader.h"
#include "host/Streams.h"
#include "programs/unzip/UnzipOptions.h"

namespace tovrek::unzip {

using Entries = std::vector<const archive::Entry*>;

// Tells for each entry whether its contents are sound, and how it is with the archive at `path` as
// a whole. The exit status.
int testEntries(const std::string& path, const archive::ArchiveReader& reader,
                const Entries& entries, const UnzipOptions& options, const Streams& streams);

// Prints the contents one after another. The exit status.
int pipeEntries(const archive::ArchiveReader& reader, const Entries& entries,
                const Streams& streams);

}  // namespace tovrek::unzip
