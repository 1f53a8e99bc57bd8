// The start of a child, as another program's process or as a copy of this one.
#pragma once

#include <signal.h>
#include <sys/types.h>

#include <string>

#include "host/Channels.h"
#include "host/process.h"

namespace tovrek {

// Starts the program with the channels as its streams; the parent's copies of the child's ends are
// closed. `mask` are the signals that the child is to hold back. Answers 0, or why it could not be
// started as errno tells.
int startChild(const Command& command, const std::string& program, Channels& channels,
               const sigset_t& mask, pid_t* child);

}  // namespace tovrek
