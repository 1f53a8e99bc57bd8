#pragma once

#include <vector>

#include "call_groups.h"

namespace tovrek::faults {

/// Has the kernel ask before each call of these groups, in this process and all that come of it.
/// Gives the descriptor that the questions come from, or -1 with errno.
int installFilter(const std::vector<const CallGroup*>& groups);

/// Gives a descriptor to the process at the other end of a socket.
bool sendDescriptor(int socket, int descriptor);

/// Takes a descriptor from the other end of a socket; -1 when that end was closed without one.
int receiveDescriptor(int socket);

}  // namespace tovrek::faults
