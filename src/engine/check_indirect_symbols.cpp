#include "engine/check_indirect_symbols.h"

#include "engine/engine_text.h"
#include "macho/pointer_models.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

// 0 for sections that have nothing to do with the indirect symbol table.
template <class P>
uint32_t elementSize(const macho_section<P>& section) {
  switch (section.flags & SECTION_TYPE_MASK) {
    case S_NON_LAZY_SYMBOL_POINTERS:
    case S_LAZY_SYMBOL_POINTERS:
      return P::kPointerSize;
    case S_SYMBOL_STUBS:
      return section.reserved2;
    default:
      return 0;
  }
}

}  // namespace

template <class P>
void checkIndirectSymbolTable(const Image<P>& image) {
  if (!image.pointers.dynamicSymbolTable) return;
  const uint32_t tableSize = image.pointers.dynamicSymbolTable->nindirectsyms;
  for (const macho_section<P>& section : image.sections) {
    const uint64_t size = section.size;
    const uint64_t element = elementSize(section);
    if (element == 0) continue;
    if (size % element != 0) {
      throwf("{} section size is not an even multiple of element size", section.sectname.view());
    }
    const uint64_t end = endOf(section.reserved1, size / element);
    if (end > tableSize) {
      throwf("{} section references beyond end of indirect symbol table ({} > {})",
             section.sectname.view(), end, tableSize);
    }
  }
}

#define TOVREK_INSTANTIATE(P) template void checkIndirectSymbolTable<P>(const Image<P>&);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
