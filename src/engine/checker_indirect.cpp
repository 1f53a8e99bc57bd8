// Sections whose elements stand for entries of the indirect symbol table.
#include "engine/MachOChecker.h"
#include "engine/engine_text.h"

namespace tovrek::macho {
namespace {

// 0 for sections that have nothing to do with the indirect symbol table.
uint64_t elementSize(uint32_t flags, uint32_t stubSize, uint32_t pointerSize) {
  switch (flags & SECTION_TYPE_MASK) {
    case S_NON_LAZY_SYMBOL_POINTERS:
    case S_LAZY_SYMBOL_POINTERS:
      return pointerSize;
    case S_SYMBOL_STUBS:
      return stubSize;
    default:
      return 0;
  }
}

}  // namespace

template <class Arch>
void MachOChecker<Arch>::checkIndirectSymbolTable() const {
  if (!pointers_.dynamicSymbolTable) return;
  const uint32_t tableSize = pointers_.dynamicSymbolTable->nindirectsyms;
  for (const SectionInfo& info : sections_) {
    const Section& section = info.record;
    const uint64_t size = section.size;
    const uint64_t element = elementSize(section.flags, section.reserved2, kPointerSize);
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

#define TOVREK_INSTANTIATE(Arch) template void MachOChecker<Arch>::checkIndirectSymbolTable() const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
