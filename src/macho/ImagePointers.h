// The load commands of an image that later steps come back to.
#pragma once

#include <cstdint>
#include <optional>

#include "macho/ByteView.h"
#include "macho/layout.h"

namespace tovrek::macho {

// One load command in place. `bytes` is empty unless the whole command lies inside the image, so
// a bad size cannot reach the neighbour.
struct CommandView {
  uint32_t index = 0;
  uint64_t offset = 0;
  uint32_t cmd = 0, cmdsize = 0;
  ByteView bytes;

  uint64_t end() const { return offset + cmdsize; }
};

// Whether the command makes the loader bring in a library (LC_ID_DYLIB does not).
constexpr bool loadsDylib(uint32_t cmd) {
  return cmd == LC_LOAD_DYLIB || cmd == LC_LOAD_WEAK_DYLIB || cmd == LC_REEXPORT_DYLIB ||
         cmd == LC_LAZY_LOAD_DYLIB || cmd == LC_LOAD_UPWARD_DYLIB;
}

// The library's name; empty when the command holds none.
template <class P>
std::string_view dylibName(const CommandView& command) {
  macho_dylib_command<P> dylib;
  if (!command.bytes.read(0, &dylib)) return {};
  return command.bytes.cString(dylib.name_offset);
}

// Copies of the commands, the last of each kind. Absent ones are empty.
template <class P>
struct ImagePointers {
  template <class Command>
  struct Located {
    uint64_t offset = 0;
    Command record;
  };
  using LinkEditData = macho_linkedit_data_command<P>;

  std::optional<macho_segment_command<P>> linkEdit;
  std::optional<macho_symtab_command<P>> symbolTable;
  std::optional<macho_dysymtab_command<P>> dynamicSymbolTable;
  std::optional<Located<macho_encryption_info_command<P>>> encryption;
  std::optional<macho_dyld_info_command<P>> dyldInfo;
  std::optional<LinkEditData> codeSignature, splitInfo, functionStarts, dataInCode, codeSignDrs;
  std::optional<LinkEditData> chainedFixups;
  std::optional<CommandView> thread;
  std::optional<macho_entry_point_command<P>> main;
  bool loadsDylinker = false;

  // Keeps the command when it is one of these. False when it is too short for its own fields.
  bool record(const CommandView& command);

 private:
  // The same for the commands that only say where a table of __LINKEDIT is.
  bool recordTable(const CommandView& command);
};

}  // namespace tovrek::macho
