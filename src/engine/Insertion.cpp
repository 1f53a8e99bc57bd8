#include "engine/Insertion.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <vector>

#include "engine/command_walk.h"
#include "engine/engine_log.h"
#include "log/SystemLog.h"
#include "macho/pointer_models.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

constexpr uint32_t kPage = 4096;
// Device images are little-endian, and so are the fields of the commands made here.
using NewCommand = macho_dylib_command<Pointer32<LittleEndian>>;

std::vector<std::byte> makeCommand(std::string_view dylib) {
  NewCommand command{};
  command.cmd = LC_LOAD_DYLIB;
  command.cmdsize = newCommandSize(dylib);
  command.name_offset = sizeof(command);
  std::vector<std::byte> bytes(command.cmdsize);
  std::memcpy(bytes.data(), &command, sizeof(command));
  std::memcpy(bytes.data() + sizeof(command), dylib.data(), dylib.size());
  return bytes;
}

}  // namespace

template <class P>
void Insertion<P>::addDylibs(const LibraryPaths& paths) {
  addOrvaneDylibLoadCommand(paths.wrapper);
  addOrvaneLoggerDylibLoadCommand(paths.logger);
}

template <class P>
void Insertion<P>::addOrvaneDylibLoadCommand(std::string_view dylib) {
  const Image<P> image = read();
  const InsertionPlan plan =
      planInsertion(image, "addOrvaneDylibLoadCommand", dylib, false, logger_);
  if (telling_.place) printError(fmt::format(" final  ldCmdOrdOfOrvDylib {} \n", plan.ordinal));
  insertCommand(image, "addOrvaneDylibLoadCommand", plan, dylib);
}

// A second reference to the logger would be harmless but useless, so there is only one. A second
// one to the wrapper library is a mistake that the order check reports.
template <class P>
void Insertion<P>::addOrvaneLoggerDylibLoadCommand(std::string_view dylib) {
  const Image<P> image = read();
  const InsertionPlan plan =
      planInsertion(image, "addOrvaneLoggerDylibLoadCommand", dylib, true, logger_);
  if (!plan.alreadyThere) insertCommand(image, "addOrvaneLoggerDylibLoadCommand", plan, dylib);
}

template <class P>
void Insertion<P>::insertCommand(const Image<P>& image, std::string_view caller,
                                 const InsertionPlan& plan, std::string_view dylib) {
  const uint64_t added = newCommandSize(dylib);
  if (!hasRoom(image, plan, added)) throw Errors::kNoRoom;
  if (telling_.room && plan.lastEnd + added > plan.lowest) {
    MachORebuildLib_Log(
        logger_,
        "{}: the new command overwrites the first data of {}, at {}; strictHeaderRoom would "
        "refuse it",
        caller, path_, plan.lowest);
  }
  writeCommand(image, caller, plan, dylib);
  moveEncryptionBehindCommands();
  flush();
}

// The codes tell of a file that cannot be mapped; what the system said of its disk is in the log.
template <class P>
void Insertion<P>::failToWrite(const ErrorText& reason) const {
  logger_.logError(fmt::format("{}: {}", path_, reason.text()));
  throw Errors::kMap;
}

template <class P>
void Insertion<P>::flush() const {
  ErrorText reason;
  if (!file_.flush(&reason)) failToWrite(reason);
}

template <class P>
void Insertion<P>::writeCommand(const Image<P>& image, std::string_view caller,
                                const InsertionPlan& plan, std::string_view dylib) {
  const uint64_t added = newCommandSize(dylib);
  const void* place = addressOf(image.bytes, plan.insertAt);
  std::vector<std::byte> command;
  std::vector<std::byte> rest;
  try {
    command = makeCommand(dylib);
    const auto tail = image.bytes.sub(plan.insertAt, image.commandsEnd() - plan.insertAt).bytes();
    rest.assign(tail.begin(), tail.end());
  } catch (const std::bad_alloc&) {
    throw Errors::kOutOfMemory;
  }
  macho_header<P> header = image.header;
  header.ncmds = header.ncmds + 1;
  header.sizeofcmds = static_cast<uint32_t>(header.sizeofcmds + added);
  MachORebuildLib_Log(
      logger_,
      "{}: storing remaining LdCmds from insertion point src {} [fileoffset {:#x}] to end length "
      "{} to buffer\n",
      caller, place, plan.insertAt, rest.size());
  MachORebuildLib_Log(logger_, "{}: writing buffer to file offset {:#x} length {}\n", caller,
                      plan.insertAt + added, rest.size());

  // The commands behind the gap reach the file first, then the new one, then the header.
  ErrorText reason;
  if (!file_.writeUnmapped(plan.insertAt + added, rest, &reason)) failToWrite(reason);
  MachORebuildLib_Log(logger_,
                      "{}: inserting new dylib command at {}  fileoffset {:#x} dylibCmdSize {}\n",
                      caller, place, plan.insertAt, command.size());
  const EditableByteView bytes(file_.bytes());
  std::ranges::copy(command, bytes.sub(plan.insertAt, added).bytes().begin());
  MachORebuildLib_Log(logger_, "{}: incrementing ncmds and increase cmdsize by {}\n", caller,
                      added);
  if (!bytes.write(0, header)) throw Errors::kMap;
}

// The loader decrypts whole pages, and refuses an image whose commands lie in them.
template <class P>
void Insertion<P>::moveEncryptionBehindCommands() {
  const Image<P> image = read();
  visitCommands(image, [&](const CommandView& command) { requireFields(image, command); });
  if (!image.pointers.encryption) return;
  auto [offset, encryption] = *image.pointers.encryption;
  const uint32_t before = encryption.cryptoff;
  if (before == 0 || before >= image.commandsEnd()) return;
  const auto after = static_cast<uint32_t>(ullRoundTo(image.commandsEnd(), kPage));
  const uint32_t moved = std::min(after - before, uint32_t{encryption.cryptsize});
  encryption.cryptoff = after;
  encryption.cryptsize = encryption.cryptsize - moved;
  if (!EditableByteView(file_.bytes()).write(offset, encryption)) throw Errors::kCommandBeyondFile;
  flush();
}

#define TOVREK_INSTANTIATE(P) template class Insertion<P>;
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
