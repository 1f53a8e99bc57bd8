// The range of the file that the loader decrypts.
#pragma once

#include "engine/AcceptanceRules.h"
#include "macho/Image.h"

namespace tovrek::macho {

template <class P>
void checkEncryption(const Image<P>& image, const AcceptanceRules& rules);

}  // namespace tovrek::macho
