// What the process of a run may get at.
#pragma once

#include "context/RunContext.h"
#include "converter/Request.h"

namespace tovrek::toolkit {

// Has the kernel refuse, to this process and its children, what a run has no reason to write to:
// all but the folders of the outputs, of the log and of temporary files, and an app that is changed
// where it stands; and what it has no reason to read, see readablePlaces(). The log tells whether
// it does where TOVREK_CONFINE is set.
void confineRun(const Request& request, const RunContext& context);

}  // namespace tovrek::toolkit
