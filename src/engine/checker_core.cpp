// Construction of the checker and its bounded walk over the load commands.
#include <bit>
#include <utility>

#include "engine/MachOChecker.h"

namespace tovrek::macho {

template <class Arch>
bool MachOChecker<Arch>::validFile(ByteView image) {
  Header header;
  if (!image.read(0, &header)) return false;
  if (header.magic != Arch::kMagic || header.cputype != Arch::kCpuType) return false;
  const uint32_t type = header.filetype;
  return type == MH_EXECUTE || type == MH_DYLIB || type == MH_DYLINKER || type == MH_BUNDLE;
}

template <class Arch>
MachOChecker<Arch>::MachOChecker(ByteView image, std::string path, bool libraryType,
                                 AcceptanceRules rules)
    : path_(std::move(path)), image_(image), libraryType_(libraryType), rules_(rules) {
  if (!validFile(image_) || !image_.read(0, &header_)) throw MachORebuildErrors::kSliceMismatch;
}

template <class Arch>
void MachOChecker<Arch>::doCheck(ByteView image, const std::string& path, bool sdkOrder,
                                 bool libraryType, AcceptanceRules rules) {
  MachOChecker(image, path, libraryType, rules).checkAll(sdkOrder);
}

template <class Arch>
void MachOChecker<Arch>::doAddDylib(EditedFile& file, const std::string& path, bool sdkOrder,
                                    bool libraryType, int binaryType, bool strictHeaderRoom) {
  const EditableByteView image(file.bytes());
  MachOChecker checker(image, path, libraryType, AcceptanceRules());
  checker.file_ = &file;
  checker.checkOrderOfLoadDylibCommands(sdkOrder);
  if (strictHeaderRoom) checker.checkHeaderRoom(binaryType);
  checker.addDylibs(binaryType);
}

template <class Arch>
void MachOChecker<Arch>::doCheckInsertion(ByteView image, const std::string& path, bool sdkOrder,
                                          bool libraryType, int binaryType) {
  MachOChecker checker(image, path, libraryType, AcceptanceRules());
  checker.checkOrderOfLoadDylibCommands(sdkOrder);
  checker.checkHeaderRoom(binaryType);
}

template <class Arch>
void MachOChecker<Arch>::checkAll(bool sdkOrder) {
  checkMachHeader();
  checkLoadCommands();
  checkOrderOfLoadDylibCommands(sdkOrder);
  checkIndirectSymbolTable();
  checkRelocations();
  checkSymbolTable();
  checkInitTerms();
}

// For traces; the offset may be anything.
template <class Arch>
const void* MachOChecker<Arch>::addressOf(uint64_t offset) const {
  const void* start = image_.bytes().data();
  uintptr_t address = 0;
  std::memcpy(&address, &start, sizeof(address));  // clang-tidy 14 crashes on std::bit_cast here
  return std::bit_cast<const void*>(address + static_cast<uintptr_t>(offset));
}

template <class Arch>
CommandView MachOChecker<Arch>::commandAt(uint32_t index, uint64_t offset) const {
  macho_load_command<P> command;
  if (offset + sizeof(command) > commandsEnd()) throw MachORebuildErrors::kCommandBeyondCommands;
  if (!image_.read(offset, &command)) throw MachORebuildErrors::kCommandBeyondFile;
  return {index, offset, command.cmd, command.cmdsize, image_.sub(offset, command.cmdsize)};
}

template <class Arch>
void MachOChecker<Arch>::requireInside(const CommandView& command) const {
  // A command without room for its own two words would lead nowhere, or into the next one.
  if (command.cmdsize < sizeof(macho_load_command<P>) || command.end() > commandsEnd()) {
    throw MachORebuildErrors::kCommandBeyondCommands;
  }
  if (command.end() > image_.size()) throw MachORebuildErrors::kCommandBeyondFile;
}

template <class Arch>
void MachOChecker<Arch>::recordPointers(const CommandView& command) {
  if (!pointers_.record(command)) throw MachORebuildErrors::kCommandBeyondCommands;
}

// Empty when there is none, or it lies outside the image.
template <class Arch>
ByteView MachOChecker<Arch>::stringPool() const {
  if (!pointers_.symbolTable || pointers_.symbolTable->stroff == 0) return {};
  return image_.sub(pointers_.symbolTable->stroff, pointers_.symbolTable->strsize);
}

#define TOVREK_INSTANTIATE(Arch)                                                                 \
  template bool MachOChecker<Arch>::validFile(ByteView);                                         \
  template void MachOChecker<Arch>::doCheck(ByteView, const std::string&, bool, bool,            \
                                            AcceptanceRules);                                    \
  template void MachOChecker<Arch>::doAddDylib(EditedFile&, const std::string&, bool, bool, int, \
                                               bool);                                            \
  template void MachOChecker<Arch>::doCheckInsertion(ByteView, const std::string&, bool, bool,   \
                                                     int);                                       \
  template const void* MachOChecker<Arch>::addressOf(uint64_t) const;                            \
  template CommandView MachOChecker<Arch>::commandAt(uint32_t, uint64_t) const;                  \
  template void MachOChecker<Arch>::requireInside(const CommandView&) const;                     \
  template void MachOChecker<Arch>::recordPointers(const CommandView&);                          \
  template ByteView MachOChecker<Arch>::stringPool() const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
