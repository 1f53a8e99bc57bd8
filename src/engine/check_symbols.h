// Names and section numbers of the symbol table.
#pragma once

#include "macho/Image.h"

namespace tovrek::macho {

template <class P>
void checkSymbolTable(const Image<P>& image);

}  // namespace tovrek::macho
