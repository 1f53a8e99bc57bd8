// The tables that load commands point to: all must lie in the link-edit segment, aligned.
#pragma once

#include "engine/AcceptanceRules.h"
#include "macho/Image.h"

namespace tovrek::macho {

// There must be a link-edit segment.
template <class P>
void checkLinkEdit(const Image<P>& image, const AcceptanceRules& rules);

}  // namespace tovrek::macho
