#include "engine/check_load_commands.h"

#include "engine/architectures.h"
#include "engine/check_encryption.h"
#include "engine/check_header.h"
#include "engine/check_link_edit.h"
#include "engine/check_segments.h"
#include "engine/check_start.h"
#include "engine/command_walk.h"
#include "engine/engine_log.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

template <class P>
void checkCommandKind(const Image<P>& image, uint32_t cmd, const AcceptanceRules& rules) {
  if (cmd == P::kSegmentCommand || cmd == P::kRoutinesCommand) return;
  if (!rules.acceptsCommand(cmd)) throw Errors::kUnknownCommand;
  const bool executable = image.header.filetype == MH_EXECUTE;
  if (cmd == LC_UNIXTHREAD && !executable) throw Errors::kUnixThreadNotExecutable;
  if (cmd == LC_MAIN && !executable) throw Errors::kMainNotExecutable;
  // An umbrella's parts are re-exports under another name.
  if ((cmd == LC_SUB_UMBRELLA || cmd == LC_SUB_LIBRARY) &&
      (image.header.flags & MH_NO_REEXPORTED_DYLIBS) != 0) {
    throw Errors::kSubLibraryNoReexports;
  }
}

template <class P>
void checkCommandKinds(const Image<P>& image, const AcceptanceRules& rules,
                       const WrapperLogger& logger) {
  constexpr uint32_t kMask = P::kPointerSize - 1;
  const auto checkSize = [&](const CommandView& command) {
    MachORebuildLib_Log(logger, "{}: i {} cmd {} code {:#x} cmdsize {} Mask {:#x}\n",
                        "checkLoadCommands", command.index, addressOf(image.bytes, command.offset),
                        command.cmd, command.cmdsize, kMask);
    if ((command.cmdsize & kMask) != 0) throw Errors::kCommandUnaligned;
  };
  for (const CommandView& command : wholeCommands(image)) {
    checkSize(command);
    checkCommandKind(image, command.cmd, rules);
    requireFields(image, command);
  }
  if (!image.damage) return;
  // The two words that can be read are judged like those of any other command, wherever they lie.
  CommandView command = image.damage->command;
  macho_load_command<P> record;
  if (image.bytes.read(command.offset, &record)) {
    command.cmd = record.cmd;
    command.cmdsize = record.cmdsize;
    checkSize(command);
    if (command.end() > image.commandsEnd()) throw Errors::kCommandBeyondCommands;
    if (command.end() <= image.bytes.size()) checkCommandKind(image, command.cmd, rules);
  }
  throw damageCode(image);
}

}  // namespace

template <class Arch>
SegmentFacts<typename Arch::P> checkLoadCommands(const Image<typename Arch::P>& image,
                                                 const AcceptanceRules& rules,
                                                 const WrapperLogger& logger) {
  checkCommandKinds(image, rules, logger);
  auto facts = checkSegments(image);
  checkRequiredSegments(image, facts);
  checkStack<Arch>(image, facts);
  checkEntryPoint<Arch>(image, facts);
  checkStaticFlags(image);
  checkEncryption(image, rules);
  checkLinkEdit(image, rules);
  return facts;
}

#define TOVREK_INSTANTIATE(Arch)                                   \
  template SegmentFacts<typename Arch::P> checkLoadCommands<Arch>( \
      const Image<typename Arch::P>&, const AcceptanceRules&, const WrapperLogger&);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
