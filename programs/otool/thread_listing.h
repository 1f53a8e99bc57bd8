// Register states in LC_THREAD and LC_UNIXTHREAD.
#pragma once

#include "listing/Output.h"
#include "macho/ImagePointers.h"

namespace tovrek::otool {

template <class P>
void listThread(uint32_t cputype, const macho::CommandView& command, listing::Output* output);

}  // namespace tovrek::otool
