#include "engine/check_symbols.h"

#include <optional>
#include <vector>

#include "engine/MachORebuildErrors.h"
#include "engine/SymbolNames.h"
#include "engine/engine_text.h"
#include "macho/pointer_models.h"

namespace tovrek::macho {
namespace {

// The symbols [first, end) of the table.
struct SymbolRange {
  uint64_t first, end;

  SymbolRange(uint32_t start, uint32_t count) : first(start), end(uint64_t{start} + count) {}
};

// The table and its names, read only where a check comes by.
template <class P>
class SymbolCheck {
 public:
  explicit SymbolCheck(const Image<P>& image) : image_(image), table_(*image.pointers.symbolTable) {
    if (table_.stroff != 0) pool_ = image.bytes.sub(table_.stroff, table_.strsize);
  }

  // The names are compared together first; verdicts come symbol by symbol.
  void checkNames(const SymbolRange& defined, const SymbolRange& undefined) const {
    std::vector<uint32_t> starts;
    gather(defined, &starts);
    const size_t definedCount = starts.size();
    gather(undefined, &starts);
    SymbolNames names(pool_, starts);
    checkDefined(defined, names.define(definedCount));
    checkUndefined(undefined, definedCount, names.firstDefined(definedCount));
  }

  void checkSectionNumbers() const {
    for (uint64_t i = 0; i < table_.nsyms; ++i) {
      const auto symbol = symbolAt(i);
      // Debugger symbols use the field for other numbers.
      if ((symbol.n_type & N_STAB) == 0 && symbol.n_sect > image_.sections.size()) {
        throwf("symbol '{}' has n_sect={} which is too large", pool_.cString(symbol.n_strx),
               symbol.n_sect);
      }
    }
  }

 private:
  bool read(uint64_t index, macho_nlist<P>* symbol) const {
    return image_.bytes.read(table_.symoff + index * sizeof(*symbol), symbol);
  }
  macho_nlist<P> symbolAt(uint64_t index) const {
    macho_nlist<P> symbol;
    if (!read(index, &symbol)) throw MachORebuildErrors::kSymbolsEnd;
    return symbol;
  }
  uint64_t nameOffsetOf(const macho_nlist<P>& symbol) const {
    if (symbol.n_strx >= pool_.size()) throwf("string index out of range");
    return symbol.n_strx;
  }

  // A symbol that fails below ends the gathering.
  void gather(const SymbolRange& range, std::vector<uint32_t>* starts) const {
    for (uint64_t i = range.first; i < range.end; ++i) {
      macho_nlist<P> symbol;
      if (!read(i, &symbol) || symbol.n_strx >= pool_.size()) return;
      starts->push_back(symbol.n_strx);
    }
  }

  void checkDefined(const SymbolRange& range, std::optional<size_t> repeated) const {
    for (uint64_t i = range.first; i < range.end; ++i) {
      const auto symbol = symbolAt(i);
      const uint64_t start = nameOffsetOf(symbol);
      if (i - range.first == repeated) {
        throwf("duplicate external symbol: {}", pool_.cString(start));
      }
      if ((symbol.n_type & N_EXT) == 0) {
        throwf("non-external symbol in external symbol range: {}", pool_.cString(start));
      }
    }
  }

  void checkUndefined(const SymbolRange& range, size_t definedCount,
                      std::optional<size_t> known) const {
    for (uint64_t i = range.first; i < range.end; ++i) {
      const uint64_t start = nameOffsetOf(symbolAt(i));
      if (definedCount + (i - range.first) == known) {
        throwf("undefine with same name as external symbol: {}", pool_.cString(start));
      }
    }
  }

  const Image<P>& image_;
  const macho_symtab_command<P>& table_;
  ByteView pool_;  // empty when there is none, or it lies outside the image
};

}  // namespace

template <class P>
void checkSymbolTable(const Image<P>& image) {
  if (!image.pointers.dynamicSymbolTable || !image.pointers.symbolTable) return;
  const auto& ranges = *image.pointers.dynamicSymbolTable;
  const SymbolCheck<P> check(image);
  check.checkNames({ranges.iextdefsym, ranges.nextdefsym}, {ranges.iundefsym, ranges.nundefsym});
  check.checkSectionNumbers();
}

#define TOVREK_INSTANTIATE(P) template void checkSymbolTable<P>(const Image<P>&);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
