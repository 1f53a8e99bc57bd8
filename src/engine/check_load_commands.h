// The load commands as a whole: the order of their checks, and the kinds that may appear.
#pragma once

#include "engine/AcceptanceRules.h"
#include "engine/SegmentFacts.h"
#include "log/WrapperLogger.h"
#include "macho/Image.h"

namespace tovrek::macho {

// Checks the commands and all that they say of segments, start, encryption and the link-edit
// segment. After it every command is whole, and the text and link-edit segments are there.
template <class Arch>
SegmentFacts<typename Arch::P> checkLoadCommands(const Image<typename Arch::P>& image,
                                                 const AcceptanceRules& rules,
                                                 const WrapperLogger& logger);

}  // namespace tovrek::macho
