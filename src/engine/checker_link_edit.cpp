// The tables that load commands point to: all must lie in the link-edit segment, aligned.
#include "engine/MachOChecker.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

// The extent of a symbol table is judged by the shortest record that ever was, not by the
// architecture's own 12 or 16 bytes; tables that were accepted must stay so.
constexpr uint64_t kJudgedSymbolSize = 8;
constexpr uint64_t kIndirectSymbolSize = 4;
constexpr uint64_t kRelocationSize = 8;

enum class TableKind { kRecords, kBytes };
struct LinkEditDataRule {
  uint32_t cmd;
  TableKind kind;
  Errors range, offset, size;
};
// A command that only some rules accept stays unknown when its table is out of place.
constexpr LinkEditDataRule newCommandRule(uint32_t cmd) {
  return {cmd, TableKind::kBytes, Errors::kUnknownCommand, Errors::kUnknownCommand,
          Errors::kUnknownCommand};
}
constexpr LinkEditDataRule kLinkEditDataRules[] = {
    {LC_SEGMENT_SPLIT_INFO, TableKind::kBytes, Errors::kSplitInfoRange, Errors::kSplitInfoUnaligned,
     Errors::kSplitInfoSize},
    {LC_FUNCTION_STARTS, TableKind::kBytes, Errors::kFunctionStartsRange,
     Errors::kFunctionStartsUnaligned, Errors::kFunctionStartsSize},
    {LC_DATA_IN_CODE, TableKind::kRecords, Errors::kDataInCodeRange, Errors::kDataInCodeUnaligned,
     Errors::kDataInCodeSize},
    {LC_DYLIB_CODE_SIGN_DRS, TableKind::kBytes, Errors::kDrsRange, Errors::kDrsUnaligned,
     Errors::kDrsSize},
    newCommandRule(LC_DYLD_EXPORTS_TRIE),
    newCommandRule(LC_DYLD_CHAINED_FIXUPS),
    newCommandRule(LC_LINKER_OPTIMIZATION_HINT),
    newCommandRule(LC_ATOM_INFO),
    newCommandRule(LC_FUNCTION_VARIANTS),
    newCommandRule(LC_FUNCTION_VARIANT_FIXUPS),
};

void requireMultiple(uint64_t value, uint32_t unit, Errors code) {
  if (value % unit != 0) throw code;
}

}  // namespace

template <class Arch>
void MachOChecker<Arch>::requireInLinkEdit(uint64_t start, uint64_t size, Errors below,
                                           Errors beyond) const {
  const Segment& linkEdit = *pointers_.linkEdit;
  if (start < linkEdit.fileoff) throw below;
  if (endOf(start, size) > endOf(linkEdit.fileoff, linkEdit.filesize)) throw beyond;
}

template <class Arch>
void MachOChecker<Arch>::checkSymbolTableRanges(const CommandView& command) const {
  macho_symtab_command<P> table;
  if (!command.bytes.read(0, &table)) throw Errors::kCommandBeyondCommands;
  requireInLinkEdit(table.symoff, table.nsyms * kJudgedSymbolSize, Errors::kSymbolsStart,
                    Errors::kSymbolsEnd);
  requireMultiple(table.symoff, kPointerSize, Errors::kSymbolsUnaligned);
  requireInLinkEdit(table.stroff, table.strsize, Errors::kStringsStart, Errors::kStringsEnd);
  const uint32_t unit = rules_.stringPoolAlignment;
  requireMultiple(table.stroff, unit == 0 ? kPointerSize : unit, Errors::kStringsUnaligned);
  if (!rules_.anyTableSize) requireMultiple(table.strsize, kPointerSize, Errors::kStringsSize);
}

// An empty table has no place, so its offset (usually 0) says nothing.
template <class Arch>
void MachOChecker<Arch>::checkDynamicSymbolTableRanges(const CommandView& command) const {
  macho_dysymtab_command<P> table;
  if (!command.bytes.read(0, &table)) throw Errors::kCommandBeyondCommands;
  const auto checkTable = [this](uint32_t offset, uint32_t count, uint64_t size, Errors range,
                                 Errors unaligned) {
    if (count == 0) return;
    requireInLinkEdit(offset, count * size, range, range);
    requireMultiple(offset, kPointerSize, unaligned);
  };
  checkTable(table.indirectsymoff, table.nindirectsyms, kIndirectSymbolSize, Errors::kIndirectRange,
             Errors::kIndirectUnaligned);
  if (isStatic()) throw Errors::kDynamicSymbolsStatic;
  checkTable(table.locreloff, table.nlocrel, kRelocationSize, Errors::kLocalRelocationsRange,
             Errors::kLocalRelocationsUnaligned);
  checkTable(table.extreloff, table.nextrel, kRelocationSize, Errors::kExternalRelocationsRange,
             Errors::kExternalRelocationsUnaligned);
}

template <class Arch>
void MachOChecker<Arch>::checkLinkEditData(const CommandView& command) const {
  for (const LinkEditDataRule& rule : kLinkEditDataRules) {
    if (rule.cmd != command.cmd) continue;
    macho_linkedit_data_command<P> data;
    if (!command.bytes.read(0, &data)) throw rule.range;
    const bool isNew = rule.range == Errors::kUnknownCommand;
    if (isNew && data.datasize == 0) continue;  // linkers give an empty table no place
    requireInLinkEdit(data.dataoff, data.datasize, rule.range, rule.range);
    requireMultiple(data.dataoff, kPointerSize, rule.offset);
    const bool anySize = rules_.anyTableSize && rule.kind == TableKind::kBytes;
    if (!anySize) requireMultiple(data.datasize, kPointerSize, rule.size);
  }
  if (command.cmd == LC_SEGMENT_SPLIT_INFO && isStatic()) throw Errors::kSplitInfoStatic;
}

template <class Arch>
void MachOChecker<Arch>::checkLinkEdit() const {
  forEachCommand([this](const CommandView& command) {
    if (command.cmd == LC_SYMTAB) {
      checkSymbolTableRanges(command);
    } else if (command.cmd == LC_DYSYMTAB) {
      checkDynamicSymbolTableRanges(command);
    } else {
      checkLinkEditData(command);
    }
  });
  if (isStatic()) return;
  if (!pointers_.dynamicSymbolTable) throw Errors::kNoDynamicSymbols;
  if (!pointers_.symbolTable || pointers_.symbolTable->stroff == 0) throw Errors::kNoStrings;
}

#define TOVREK_INSTANTIATE(Arch)                                                                 \
  template void MachOChecker<Arch>::requireInLinkEdit(uint64_t, uint64_t, Errors, Errors) const; \
  template void MachOChecker<Arch>::checkSymbolTableRanges(const CommandView&) const;            \
  template void MachOChecker<Arch>::checkDynamicSymbolTableRanges(const CommandView&) const;     \
  template void MachOChecker<Arch>::checkLinkEditData(const CommandView&) const;                 \
  template void MachOChecker<Arch>::checkLinkEdit() const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
