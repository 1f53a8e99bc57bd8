// The program Batch: runs the toolkit's commands for all rows of a table.
#pragma once

#include "host/program.h"

namespace tovrek::batch {

// Answers an ExitStatus of batch/batch.h.
int run(const Arguments& arguments, const Streams& streams);

}  // namespace tovrek::batch
