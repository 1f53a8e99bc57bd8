// Sections whose elements stand for entries of the indirect symbol table.
#pragma once

#include "macho/Image.h"

namespace tovrek::macho {

template <class P>
void checkIndirectSymbolTable(const Image<P>& image);

}  // namespace tovrek::macho
