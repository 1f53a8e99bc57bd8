#include "engine/check_link_edit.h"

#include "engine/MachORebuildErrors.h"
#include "engine/check_header.h"
#include "engine/command_walk.h"
#include "macho/pointer_models.h"
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

template <class P>
void requireInLinkEdit(const Image<P>& image, uint64_t start, uint64_t size, Errors below,
                       Errors beyond) {
  const macho_segment_command<P>& linkEdit = *image.pointers.linkEdit;
  if (start < linkEdit.fileoff) throw below;
  if (endOf(start, size) > endOf(linkEdit.fileoff, linkEdit.filesize)) throw beyond;
}

template <class P>
void checkSymbolTableRanges(const Image<P>& image, const CommandView& command,
                            const AcceptanceRules& rules) {
  macho_symtab_command<P> table;
  if (!command.bytes.read(0, &table)) throw Errors::kCommandBeyondCommands;
  requireInLinkEdit(image, table.symoff, table.nsyms * kJudgedSymbolSize, Errors::kSymbolsStart,
                    Errors::kSymbolsEnd);
  requireMultiple(table.symoff, P::kPointerSize, Errors::kSymbolsUnaligned);
  requireInLinkEdit(image, table.stroff, table.strsize, Errors::kStringsStart, Errors::kStringsEnd);
  const uint32_t unit = rules.stringPoolAlignment;
  requireMultiple(table.stroff, unit == 0 ? P::kPointerSize : unit, Errors::kStringsUnaligned);
  if (!rules.anyTableSize) requireMultiple(table.strsize, P::kPointerSize, Errors::kStringsSize);
}

// An empty table has no place, so its offset (usually 0) says nothing.
template <class P>
void checkDynamicSymbolTableRanges(const Image<P>& image, const CommandView& command) {
  macho_dysymtab_command<P> table;
  if (!command.bytes.read(0, &table)) throw Errors::kCommandBeyondCommands;
  const auto checkTable = [&](uint32_t offset, uint32_t count, uint64_t size, Errors range,
                              Errors unaligned) {
    if (count == 0) return;
    requireInLinkEdit(image, offset, count * size, range, range);
    requireMultiple(offset, P::kPointerSize, unaligned);
  };
  checkTable(table.indirectsymoff, table.nindirectsyms, kIndirectSymbolSize, Errors::kIndirectRange,
             Errors::kIndirectUnaligned);
  if (isStatic(image)) throw Errors::kDynamicSymbolsStatic;
  checkTable(table.locreloff, table.nlocrel, kRelocationSize, Errors::kLocalRelocationsRange,
             Errors::kLocalRelocationsUnaligned);
  checkTable(table.extreloff, table.nextrel, kRelocationSize, Errors::kExternalRelocationsRange,
             Errors::kExternalRelocationsUnaligned);
}

template <class P>
void checkLinkEditData(const Image<P>& image, const CommandView& command,
                       const AcceptanceRules& rules) {
  for (const LinkEditDataRule& rule : kLinkEditDataRules) {
    if (rule.cmd != command.cmd) continue;
    macho_linkedit_data_command<P> data;
    if (!command.bytes.read(0, &data)) throw rule.range;
    const bool isNew = rule.range == Errors::kUnknownCommand;
    if (isNew && data.datasize == 0) continue;  // linkers give an empty table no place
    requireInLinkEdit(image, data.dataoff, data.datasize, rule.range, rule.range);
    requireMultiple(data.dataoff, P::kPointerSize, rule.offset);
    const bool anySize = rules.anyTableSize && rule.kind == TableKind::kBytes;
    if (!anySize) requireMultiple(data.datasize, P::kPointerSize, rule.size);
  }
  if (command.cmd == LC_SEGMENT_SPLIT_INFO && isStatic(image)) throw Errors::kSplitInfoStatic;
}

}  // namespace

template <class P>
void checkLinkEdit(const Image<P>& image, const AcceptanceRules& rules) {
  visitCommands(image, [&](const CommandView& command) {
    if (command.cmd == LC_SYMTAB) {
      checkSymbolTableRanges(image, command, rules);
    } else if (command.cmd == LC_DYSYMTAB) {
      checkDynamicSymbolTableRanges(image, command);
    } else {
      checkLinkEditData(image, command, rules);
    }
  });
  if (isStatic(image)) return;
  if (!image.pointers.dynamicSymbolTable) throw Errors::kNoDynamicSymbols;
  const auto& symbols = image.pointers.symbolTable;
  if (!symbols || symbols->stroff == 0) throw Errors::kNoStrings;
}

#define TOVREK_INSTANTIATE(P) \
  template void checkLinkEdit<P>(const Image<P>&, const AcceptanceRules&);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
