// Writing the entries of an archive into the destination folder.
#pragma once

#include <string>
#include <vector>

#include "archive/ArchiveReader.h"
#include "archive/StandIns.h"
#include "programs/unzip/ExtractionPlan.h"

namespace tovrek::unzip {

// Carries the plan out, on all processors, and prints a line for each item unless `options` ask
// for quiet. A file whose bytes turn out damaged does not stay. `standIns`, which may be null, are
// those that the archive's entries may get. Gives the exit status.
int extract(const archive::ArchiveReader& reader, const ExtractionPlan& plan,
            const archive::StandIns* standIns, const UnzipOptions& options, const Streams& streams,
            const FolderCursor& destination);

}  // namespace tovrek::unzip
