// Checks of the Mach-O header.
#pragma once

#include "engine/AcceptanceRules.h"
#include "macho/Image.h"

namespace tovrek::macho {

// Its size, flags and file type.
template <class P>
void checkMachHeader(const Image<P>& image, const AcceptanceRules& rules);
// The flags of an executable that no loader completes; for after the load commands.
template <class P>
void checkStaticFlags(const Image<P>& image);

// Whether no loader completes the executable.
template <class P>
bool isStatic(const Image<P>& image) {
  return image.header.filetype == MH_EXECUTE && !image.pointers.loadsDylinker;
}

}  // namespace tovrek::macho
