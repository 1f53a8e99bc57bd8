// The six architectures, each a pointer model with the numbers that set it apart.
#pragma once

#include <string_view>
#include <utility>

#include "macho/layout.h"

namespace tovrek::macho {

// Which segment the addresses of relocation entries count from.
enum class RelocationBase { kFirstSegment, kFirstUnlessSplit, kWritableWhenHigh, kWritable };

struct ppc : Pointer32<BigEndian> {
  using P = Pointer32<BigEndian>;
  static constexpr std::string_view kName = "ppc";
  static constexpr uint32_t kCpuType = kCpuPowerPc;
  static constexpr uint32_t kStackRegister = 3, kEntryRegister = 0;  // r1, srr0
  static constexpr RelocationBase kRelocationBase = RelocationBase::kFirstUnlessSplit;
  static constexpr uint32_t kScatteredPointerType = 9;  // PPC_RELOC_PB_LA_PTR
};

struct ppc64 : Pointer64<BigEndian> {
  using P = Pointer64<BigEndian>;
  static constexpr std::string_view kName = "ppc64";
  static constexpr uint32_t kCpuType = kCpuPowerPc | kCpuArch64;
  static constexpr uint32_t kStackRegister = 3, kEntryRegister = 0;
  static constexpr RelocationBase kRelocationBase = RelocationBase::kWritableWhenHigh;
};

struct x86 : Pointer32<LittleEndian> {
  using P = Pointer32<LittleEndian>;
  static constexpr std::string_view kName = "x86";
  static constexpr uint32_t kCpuType = kCpuX86;
  static constexpr uint32_t kStackRegister = 7, kEntryRegister = 10;  // esp, eip
  static constexpr RelocationBase kRelocationBase = RelocationBase::kFirstUnlessSplit;
  static constexpr uint32_t kScatteredPointerType = 3;  // GENERIC_RELOC_PB_LA_PTR
};

struct x86_64 : Pointer64<LittleEndian> {
  using P = Pointer64<LittleEndian>;
  static constexpr std::string_view kName = "x86_64";
  static constexpr uint32_t kCpuType = kCpuX86 | kCpuArch64;
  static constexpr uint32_t kStackRegister = 7, kEntryRegister = 16;  // rsp, rip
  static constexpr RelocationBase kRelocationBase = RelocationBase::kWritable;
};

struct arm : Pointer32<LittleEndian> {
  using P = Pointer32<LittleEndian>;
  static constexpr std::string_view kName = "arm";
  static constexpr uint32_t kCpuType = kCpuArm;
  static constexpr uint32_t kStackRegister = 13, kEntryRegister = 15;  // sp, pc
  static constexpr RelocationBase kRelocationBase = RelocationBase::kFirstUnlessSplit;
  static constexpr uint32_t kScatteredPointerType = 4;  // ARM_RELOC_PB_LA_PTR
};

// Images of this architecture start by LC_MAIN only and hold no relocation entries.
struct arm64 : Pointer64<LittleEndian> {
  using P = Pointer64<LittleEndian>;
  static constexpr std::string_view kName = "arm64";
  static constexpr uint32_t kCpuType = kCpuArm | kCpuArch64;
};

// Calls `visit.template operator()<Arch>()` for each architecture in the order in which an image
// of unknown kind is tried, until one call answers true. False when none did.
template <class... Archs, class Visitor>
bool anyOf(Visitor&& visit) {
  return (visit.template operator()<Archs>() || ...);
}
template <class Visitor>
bool tryArchitectures(Visitor&& visit) {
  return anyOf<x86, ppc, ppc64, x86_64, arm, arm64>(std::forward<Visitor>(visit));
}

}  // namespace tovrek::macho

// `apply` names one instantiation for an architecture.
#define TOVREK_FOR_EACH_ARCH(apply) \
  apply(ppc) apply(ppc64) apply(x86) apply(x86_64) apply(arm) apply(arm64)
