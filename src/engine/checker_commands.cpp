// The load commands as a whole: the order of their checks, and the kinds that may appear.
#include "engine/MachOChecker.h"
#include "engine/MachORebuildLib.h"

namespace tovrek::macho {

template <class Arch>
void MachOChecker<Arch>::checkLoadCommands() {
  checkCommandKinds();
  checkSegments();
  checkRequiredSegments();
  checkStack();
  checkEntryPoint();
  checkStaticFlags();
  checkEncryption();
  checkLinkEdit();
}

template <class Arch>
void MachOChecker<Arch>::checkCommandKinds() {
  uint64_t offset = kHeaderSize;
  for (uint32_t i = 0; i < header_.ncmds; ++i) {
    const CommandView command = commandAt(i, offset);
    MachORebuildLib_Log("{}: i {} cmd {} code {:#x} cmdsize {} Mask {:#x}\n", "checkLoadCommands",
                        i, addressOf(offset), command.cmd, command.cmdsize, kLoadCommandSizeMask);
    if ((command.cmdsize & kLoadCommandSizeMask) != 0) throw MachORebuildErrors::kCommandUnaligned;
    requireInside(command);
    checkCommandKind(command);
    recordPointers(command);
    offset = command.end();
  }
}

template <class Arch>
void MachOChecker<Arch>::checkCommandKind(const CommandView& command) {
  const uint32_t cmd = command.cmd;
  if (cmd == P::kSegmentCommand || cmd == P::kRoutinesCommand) return;
  if (!rules_.acceptsCommand(cmd)) throw MachORebuildErrors::kUnknownCommand;
  const bool executable = header_.filetype == MH_EXECUTE;
  if (cmd == LC_UNIXTHREAD && !executable) throw MachORebuildErrors::kUnixThreadNotExecutable;
  if (cmd == LC_MAIN && !executable) throw MachORebuildErrors::kMainNotExecutable;
  // An umbrella's parts are re-exports under another name.
  if ((cmd == LC_SUB_UMBRELLA || cmd == LC_SUB_LIBRARY) &&
      (header_.flags & MH_NO_REEXPORTED_DYLIBS) != 0) {
    throw MachORebuildErrors::kSubLibraryNoReexports;
  }
}

#define TOVREK_INSTANTIATE(Arch)                         \
  template void MachOChecker<Arch>::checkLoadCommands(); \
  template void MachOChecker<Arch>::checkCommandKinds(); \
  template void MachOChecker<Arch>::checkCommandKind(const CommandView&);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
