// Adjusting pointers stored in an image: kept for users of the engine; no command calls these.
#include <charconv>
#include <memory>
#include <unordered_map>

#include "engine/MachOChecker.h"

namespace tovrek::macho {
namespace {

// Offsets as decimal text, each with the same mark.
using PointerRegistry = std::unordered_map<std::string, std::string>;

std::unique_ptr<PointerRegistry>& registry() {
  static std::unique_ptr<PointerRegistry> instance;
  return instance;
}

}  // namespace

void addPointerOffset(uint64_t offset) {
  if (!registry()) registry() = std::make_unique<PointerRegistry>();
  registry()->try_emplace(std::to_string(offset), "ptrOffset");
}

void CollectObjCAddressOffsets(uint32_t /*cputype*/, uint32_t /*cpusubtype*/,
                               const std::string& /*name*/, ByteView /*image*/) {}

template <class Arch>
std::byte* MachOChecker<Arch>::updateFunctionPtr(uint64_t low, uint64_t high, std::byte* slot,
                                                 int64_t delta) {
  typename P::Integer value;
  std::memcpy(&value, slot, sizeof(value));
  constexpr bool kBounded = (Arch::kCpuType & ~kCpuArch64) != kCpuArm;
  if (low <= value && (!kBounded || value < high)) {
    value = static_cast<typename P::Integer>(value + static_cast<uint64_t>(delta));
    std::memcpy(slot, &value, sizeof(value));
  }
  return slot + sizeof(value);
}

template <class Arch>
void MachOChecker<Arch>::ProcessAddressOffsets(EditableByteView image, uint64_t size, bool /*flag*/,
                                               uint64_t base) {
  if (!registry()) return;
  for (const auto& [key, mark] : *registry()) {
    uint64_t offset = 0;
    std::from_chars(key.data(), key.data() + key.size(), offset);
    if (!image.contains(offset, kPointerSize)) continue;
    updateFunctionPtr(0, size, image.bytes().data() + offset, static_cast<int64_t>(base));
  }
  registry()->clear();
}

template <class Arch>
void MachOChecker<Arch>::wexUpdateAddressOffsets(EditableByteView image,
                                                 const std::string& /*name*/, uint64_t size,
                                                 uint64_t base) {
  ProcessAddressOffsets(image, size, false, base);
}

template <class Arch>
uint32_t MachOChecker<Arch>::wexClassProcess(ByteView image, const std::string& name,
                                             uint64_t /*size*/) {
  Header header;
  if (!image.read(0, &header)) return 0;
  CollectObjCAddressOffsets(header.cputype, header.cpusubtype, name, image);
  return header.cpusubtype;
}

#define TOVREK_INSTANTIATE(Arch)                                                                  \
  template std::byte* MachOChecker<Arch>::updateFunctionPtr(uint64_t, uint64_t, std::byte*,       \
                                                            int64_t);                             \
  template void MachOChecker<Arch>::ProcessAddressOffsets(EditableByteView, uint64_t, bool,       \
                                                          uint64_t);                              \
  template void MachOChecker<Arch>::wexUpdateAddressOffsets(EditableByteView, const std::string&, \
                                                            uint64_t, uint64_t);                  \
  template uint32_t MachOChecker<Arch>::wexClassProcess(ByteView, const std::string&, uint64_t);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
