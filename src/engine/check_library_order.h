// Which management libraries an executable loads, and in which order.
#pragma once

#include "macho/Image.h"

namespace tovrek::macho {

// `sdkOrder` asks for the order of SDK-built executables; `libraryType` accepts references to
// Intune's framework.
template <class P>
void checkOrderOfLoadDylibCommands(const Image<P>& image, bool sdkOrder, bool libraryType);

}  // namespace tovrek::macho
