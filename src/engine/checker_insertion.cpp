// Insertion of load commands into the room before the first section.
//
// Each insertion plans first (nothing is changed, everything can fail) and then applies the plan
// in the one order in which the file's bytes may change.
#include <algorithm>
#include <vector>

#include "engine/MachOChecker.h"
#include "engine/MachORebuildLib.h"
#include "engine/entry_points.h"
#include "log/SystemLog.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

constexpr uint16_t kNoOrdinal = 0xffff;
constexpr uint32_t kPage = 4096;
// Device images are little-endian, and so are the fields of the commands made here.
using NewCommand = macho_dylib_command<Pointer32<LittleEndian>>;

struct LibraryPaths {
  std::string_view wrapper, logger;
};
constexpr LibraryPaths kApplicationPaths = {
    "@executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib",
    "@executable_path/Frameworks/OrvaneLogger.framework/OrvaneLogger"};
constexpr LibraryPaths kExtensionPaths = {
    "@executable_path/../../OrvaneDylib.bundle/OrvaneDylib.dylib",
    "@executable_path/../../Frameworks/OrvaneLogger.framework/OrvaneLogger"};

// None where nothing is inserted.
const LibraryPaths* pathsFor(int binaryType) {
  if (binaryType == kApplication) return &kApplicationPaths;
  if (binaryType == kAppExtension) return &kExtensionPaths;
  return nullptr;
}

uint32_t newCommandSize(std::string_view dylib) {
  return static_cast<uint32_t>((dylib.size() + 32) & ~uint64_t{7});
}

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

template <class Arch>
struct MachOChecker<Arch>::InsertionPlan {
  bool alreadyThere = false;
  uint64_t insertAt = kHeaderSize;
  uint64_t lastEnd = kHeaderSize;  // where the walk over the commands stopped
  uint64_t limit = 0;              // where the header's room ends
  uint64_t lowest = UINT64_MAX;    // where the first data behind it starts
  uint16_t ordinal = kNoOrdinal;   // of the library, counted from 1
};

template <class Arch>
void MachOChecker<Arch>::addDylibs(int binaryType) {
  const LibraryPaths* paths = pathsFor(binaryType);
  if (paths == nullptr) return;
  addOrvaneDylibLoadCommand(paths->wrapper);
  addOrvaneLoggerDylibLoadCommand(paths->logger);
}

template <class Arch>
void MachOChecker<Arch>::addOrvaneDylibLoadCommand(std::string_view dylib) {
  const InsertionPlan plan = planInsertion("addOrvaneDylibLoadCommand", dylib, false);
  printError(fmt::format(" final  ldCmdOrdOfOrvDylib {} \n", plan.ordinal));
  insertCommand("addOrvaneDylibLoadCommand", plan, dylib);
}

// A second reference to the logger would be harmless but useless, so there is only one. A second
// one to the wrapper library is a mistake that the order check reports.
template <class Arch>
void MachOChecker<Arch>::addOrvaneLoggerDylibLoadCommand(std::string_view dylib) {
  const InsertionPlan plan = planInsertion("addOrvaneLoggerDylibLoadCommand", dylib, true);
  if (!plan.alreadyThere) insertCommand("addOrvaneLoggerDylibLoadCommand", plan, dylib);
}

// The last section counts, not the lowest.
template <class Arch>
void MachOChecker<Arch>::updateLimit(const CommandView& command, uint64_t* limit) const {
  Segment segment;
  if (!command.bytes.read(0, &segment)) throw Errors::kSegmentCommandSize;
  if (segment.fileoff != 0 || segment.filesize == 0) return;
  for (uint32_t i = 0; i < segment.nsects; ++i) {
    Section section;
    if (!command.bytes.read(sizeof(Segment) + uint64_t{i} * sizeof(Section), &section)) {
      throw Errors::kSegmentCommandSize;
    }
    if (section.addr != 0 && section.size != 0 && section.offset != 0) *limit = section.offset;
  }
}

// All sections and segments count; updateLimit has found the command to hold its sections.
template <class Arch>
void MachOChecker<Arch>::updateLowest(const CommandView& command, uint64_t* lowest) const {
  Segment segment;
  if (!command.bytes.read(0, &segment) || segment.filesize == 0) return;
  if (segment.fileoff != 0) *lowest = std::min<uint64_t>(*lowest, segment.fileoff);
  Section section;
  for (uint64_t at = sizeof(segment), i = 0; i < segment.nsects; ++i, at += sizeof(section)) {
    if (!command.bytes.read(at, &section)) return;
    if (isZeroFilled(section.flags) || section.size == 0 || section.offset == 0) continue;
    *lowest = std::min<uint64_t>(*lowest, section.offset);
  }
}

// Whether commands of `added` bytes fit by the built-in rules. The header may claim more commands
// than it counts; what it claims is moved too, and must neither run over the sections nor make
// the file grow.
template <class Arch>
bool MachOChecker<Arch>::hasRoom(const InsertionPlan& plan, uint64_t added) const {
  const uint64_t end = std::max(plan.lastEnd, commandsEnd()) + added;
  return plan.lastEnd + added < plan.limit && end <= plan.limit && end <= image_.size();
}

// Judges all that is to be inserted at once, with room for the signer's command, which follows.
template <class Arch>
void MachOChecker<Arch>::checkHeaderRoom(int binaryType) {
  const LibraryPaths* paths = pathsFor(binaryType);
  if (paths == nullptr) return;
  const InsertionPlan plan = planInsertion("checkHeaderRoom", paths->wrapper, false);
  bool hasLogger = false;
  forEachCommand([&](const CommandView& command) {
    hasLogger |= loadsDylib(command.cmd) && dylibName<P>(command).starts_with(paths->logger);
  });
  const uint64_t added =
      newCommandSize(paths->wrapper) + (hasLogger ? 0 : newCommandSize(paths->logger));
  if (!hasRoom(plan, added)) throw Errors::kNoRoom;
  const uint64_t end = std::max(plan.lastEnd, commandsEnd());
  const uint64_t signature = pointers_.codeSignature ? 0 : sizeof(macho_linkedit_data_command<P>);
  if (end + added + signature <= plan.lowest) return;
  MachORebuildLib_Log(
      "strictHeaderRoom refuses {}: the load commands end at {}, {} bytes are to be added, and "
      "the first data starts at {}",
      path_, end, added + signature, plan.lowest);
  throw Errors::kNoRoom;
}

template <class Arch>
typename MachOChecker<Arch>::InsertionPlan MachOChecker<Arch>::planInsertion(
    std::string_view caller, std::string_view dylib, bool unlessPresent) {
  InsertionPlan plan;
  uint32_t libraries = 0;
  forEachCommand([&](const CommandView& command) {
    if (plan.alreadyThere) return;
    if (command.index == 0) plan.insertAt = command.end();
    if (loadsDylib(command.cmd)) {
      plan.alreadyThere = unlessPresent && dylibName<P>(command).starts_with(dylib);
      plan.insertAt = command.end();
      ++libraries;
    }
    if (command.cmd == P::kSegmentCommand) {
      updateLimit(command, &plan.limit);
      updateLowest(command, &plan.lowest);
    }
    recordPointers(command);
    plan.lastEnd = command.end();
    MachORebuildLib_Log(
        "{}: i {} cmd {} code {:#x} cmdsize {} lastEndOfCmd {} endOfHeaderRegion {}\n", caller,
        command.index, addressOf(command.offset), command.cmd, command.cmdsize,
        addressOf(plan.lastEnd), addressOf(plan.limit));
  });
  if (libraries != 0) plan.ordinal = static_cast<uint16_t>(libraries + 1);
  return plan;
}

template <class Arch>
void MachOChecker<Arch>::insertCommand(std::string_view caller, const InsertionPlan& plan,
                                       std::string_view dylib) {
  const uint64_t added = newCommandSize(dylib);
  if (!hasRoom(plan, added)) throw Errors::kNoRoom;
  if (plan.lastEnd + added > plan.lowest) {
    MachORebuildLib_Log(
        "{}: the new command overwrites the first data of {}, at {}; strictHeaderRoom would "
        "refuse it",
        caller, path_, plan.lowest);
  }

  std::vector<std::byte> command;
  std::vector<std::byte> rest;
  try {
    command = makeCommand(dylib);
    const auto tail = image_.sub(plan.insertAt, commandsEnd() - plan.insertAt).bytes();
    rest.assign(tail.begin(), tail.end());
  } catch (const std::bad_alloc&) {
    throw Errors::kOutOfMemory;
  }
  MachORebuildLib_Log(
      "{}: storing remaining LdCmds from insertion point src {} [fileoffset {:#x}] to end length "
      "{} to buffer\n",
      caller, addressOf(plan.insertAt), plan.insertAt, rest.size());
  MachORebuildLib_Log("{}: writing buffer to file offset {:#x} length {}\n", caller,
                      plan.insertAt + added, rest.size());

  // The commands behind the gap reach the file first, then the new one, then the header.
  if (!file_->writeUnmapped(plan.insertAt + added, rest)) throw Errors::kMap;
  MachORebuildLib_Log("{}: inserting new dylib command at {}  fileoffset {:#x} dylibCmdSize {}\n",
                      caller, addressOf(plan.insertAt), plan.insertAt, command.size());
  const EditableByteView image(file_->bytes());
  std::ranges::copy(command, image.sub(plan.insertAt, added).bytes().begin());
  MachORebuildLib_Log("{}: incrementing ncmds and increase cmdsize by {}\n", caller, added);
  header_.ncmds = header_.ncmds + 1;
  header_.sizeofcmds = static_cast<uint32_t>(header_.sizeofcmds + added);
  if (!image.write(0, header_)) throw Errors::kMap;
  image_ = image;
  updateImagePointers();
  moveEncryptionBehindCommands();
  file_->flush();
}

// The loader decrypts whole pages, and refuses an image whose commands lie in them.
template <class Arch>
void MachOChecker<Arch>::moveEncryptionBehindCommands() {
  if (!pointers_.encryption) return;
  auto& [offset, encryption] = *pointers_.encryption;
  const uint32_t before = encryption.cryptoff;
  if (before == 0 || before >= commandsEnd()) return;
  const auto after = static_cast<uint32_t>(ullRoundTo(commandsEnd(), kPage));
  const uint32_t moved = std::min(after - before, uint32_t{encryption.cryptsize});
  encryption.cryptoff = after;
  encryption.cryptsize = encryption.cryptsize - moved;
  if (!EditableByteView(file_->bytes()).write(offset, encryption)) {
    throw Errors::kCommandBeyondFile;
  }
  file_->flush();
}

template <class Arch>
void MachOChecker<Arch>::updateImagePointers() {
  pointers_ = {};
  forEachCommand([this](const CommandView& command) { recordPointers(command); });
}

#define TOVREK_INSTANTIATE(Arch)                                                          \
  template void MachOChecker<Arch>::addDylibs(int);                                       \
  template void MachOChecker<Arch>::addOrvaneDylibLoadCommand(std::string_view);          \
  template void MachOChecker<Arch>::addOrvaneLoggerDylibLoadCommand(std::string_view);    \
  template void MachOChecker<Arch>::updateLimit(const CommandView&, uint64_t*) const;     \
  template void MachOChecker<Arch>::updateLowest(const CommandView&, uint64_t*) const;    \
  template bool MachOChecker<Arch>::hasRoom(const InsertionPlan&, uint64_t) const;        \
  template void MachOChecker<Arch>::checkHeaderRoom(int);                                 \
  template MachOChecker<Arch>::InsertionPlan MachOChecker<Arch>::planInsertion(           \
      std::string_view, std::string_view, bool);                                          \
  template void MachOChecker<Arch>::insertCommand(std::string_view, const InsertionPlan&, \
                                                  std::string_view);                      \
  template void MachOChecker<Arch>::moveEncryptionBehindCommands();                       \
  template void MachOChecker<Arch>::updateImagePointers();
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
