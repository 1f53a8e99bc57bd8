#include "macho/ImagePointers.h"

#include <utility>

#include "macho/pointer_models.h"

namespace tovrek::macho {
namespace {

template <class Command>
bool keep(const CommandView& command, std::optional<Command>* out) {
  Command record;
  if (!command.bytes.read(0, &record)) return false;
  *out = record;
  return true;
}

template <class P>
bool keepSegment(const CommandView& command, std::optional<macho_segment_command<P>>* linkEdit) {
  macho_segment_command<P> segment;
  // A short segment command has a failure of its own, found where segments are looked at.
  if (!command.bytes.read(0, &segment)) return true;
  if (segment.segname.view() == kLinkEditSegment) *linkEdit = segment;
  return true;
}

}  // namespace

template <class P>
bool ImagePointers<P>::record(const CommandView& command) {
  switch (command.cmd) {
    case P::kSegmentCommand:
      return keepSegment<P>(command, &linkEdit);
    case LC_SYMTAB:
      return keep(command, &symbolTable);
    case LC_DYSYMTAB:
      return keep(command, &dynamicSymbolTable);
    case LC_LOAD_DYLINKER:
      loadsDylinker = true;
      return true;
    case LC_UNIXTHREAD:
      thread = command;
      return command.bytes.size() >= sizeof(macho_thread_command<P>);
    case LC_MAIN:
      return keep(command, &main);
    case LC_ENCRYPTION_INFO:
    case LC_ENCRYPTION_INFO_64: {
      std::optional<macho_encryption_info_command<P>> found;
      if (!keep(command, &found)) return false;
      encryption = {command.offset, *found};
      return true;
    }
    case LC_DYLD_INFO:
    case LC_DYLD_INFO_ONLY:
      return keep(command, &dyldInfo);
    case LC_DYLD_CHAINED_FIXUPS:
      // A short one has a failure of its own, found where link-edit tables are looked at.
      keep(command, &chainedFixups);
      return true;
    default:
      return recordTable(command);
  }
}

template <class P>
bool ImagePointers<P>::recordTable(const CommandView& command) {
  const std::pair<uint32_t, std::optional<LinkEditData>*> tables[] = {
      {LC_CODE_SIGNATURE, &codeSignature},
      {LC_SEGMENT_SPLIT_INFO, &splitInfo},
      {LC_FUNCTION_STARTS, &functionStarts},
      {LC_DATA_IN_CODE, &dataInCode},
      {LC_DYLIB_CODE_SIGN_DRS, &codeSignDrs}};
  for (const auto& [cmd, table] : tables) {
    if (command.cmd == cmd) return keep(command, table);
  }
  return true;
}

#define TOVREK_INSTANTIATE(P) template struct ImagePointers<P>;
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
