// Names and section numbers of the symbol table.
#include <optional>
#include <vector>

#include "engine/MachOChecker.h"
#include "engine/SymbolNames.h"
#include "engine/engine_text.h"

namespace tovrek::macho {

template <class Arch>
macho_nlist<typename Arch::P> MachOChecker<Arch>::symbolAt(uint64_t index) const {
  macho_nlist<P> symbol;
  if (!image_.read(pointers_.symbolTable->symoff + index * sizeof(symbol), &symbol)) {
    throw MachORebuildErrors::kSymbolsEnd;
  }
  return symbol;
}

template <class Arch>
uint64_t MachOChecker<Arch>::nameOffsetOf(const macho_nlist<P>& symbol, uint64_t poolSize) const {
  if (symbol.n_strx >= poolSize) throwf("string index out of range");
  return symbol.n_strx;
}

template <class Arch>
void MachOChecker<Arch>::checkSymbolTable() const {
  if (!pointers_.dynamicSymbolTable || !pointers_.symbolTable) return;
  const auto& ranges = *pointers_.dynamicSymbolTable;
  const uint64_t firstDefined = ranges.iextdefsym, firstUndefined = ranges.iundefsym;
  const uint64_t endDefined = firstDefined + ranges.nextdefsym;
  const uint64_t endUndefined = firstUndefined + ranges.nundefsym;
  const ByteView pool = stringPool();

  // The names are compared together first. A symbol that fails below ends this gathering.
  std::vector<uint32_t> starts;
  const auto gather = [&](uint64_t first, uint64_t end) {
    for (uint64_t i = first; i < end; ++i) {
      macho_nlist<P> symbol;
      const uint64_t offset = pointers_.symbolTable->symoff + i * sizeof(symbol);
      if (!image_.read(offset, &symbol) || symbol.n_strx >= pool.size()) return;
      starts.push_back(symbol.n_strx);
    }
  };
  gather(firstDefined, endDefined);
  const size_t definedCount = starts.size();
  gather(firstUndefined, endUndefined);
  SymbolNames names(pool, starts);

  const std::optional<size_t> repeated = names.define(definedCount);
  for (uint64_t i = firstDefined; i < endDefined; ++i) {
    const auto symbol = symbolAt(i);
    const uint64_t start = nameOffsetOf(symbol, pool.size());
    if (i - firstDefined == repeated) {
      throwf("duplicate external symbol: {}", pool.cString(start));
    }
    if ((symbol.n_type & N_EXT) == 0) {
      throwf("non-external symbol in external symbol range: {}", pool.cString(start));
    }
  }
  const std::optional<size_t> known = names.firstDefined(definedCount);
  for (uint64_t i = firstUndefined; i < endUndefined; ++i) {
    const uint64_t start = nameOffsetOf(symbolAt(i), pool.size());
    if (definedCount + (i - firstUndefined) == known) {
      throwf("undefine with same name as external symbol: {}", pool.cString(start));
    }
  }
  for (uint64_t i = 0; i < pointers_.symbolTable->nsyms; ++i) {
    const auto symbol = symbolAt(i);
    // Debugger symbols use the field for other numbers.
    if ((symbol.n_type & N_STAB) == 0 && symbol.n_sect > sections_.size()) {
      throwf("symbol '{}' has n_sect={} which is too large", pool.cString(symbol.n_strx),
             symbol.n_sect);
    }
  }
}

#define TOVREK_INSTANTIATE(Arch)                                                             \
  template macho_nlist<typename Arch::P> MachOChecker<Arch>::symbolAt(uint64_t) const;       \
  template uint64_t MachOChecker<Arch>::nameOffsetOf(const macho_nlist<P>&, uint64_t) const; \
  template void MachOChecker<Arch>::checkSymbolTable() const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
