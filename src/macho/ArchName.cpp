#include "macho/ArchName.h"

#include <fmt/format.h>

#include "macho/layout.h"

namespace tovrek::macho {
namespace {

struct NamedArch {
  std::string_view name;
  ArchId id;
};

constexpr NamedArch kArchs[] = {
    {"armv6", {kCpuArm, 6}},
    {"armv7", {kCpuArm, 9}},
    {"armv7s", {kCpuArm, 11}},
    {"armv7k", {kCpuArm, 12}},
    {"arm64", {kCpuArm | kCpuArch64, 0}},
    {"arm64e", {kCpuArm | kCpuArch64, 2}},
    {"arm64_32", {kCpuArm | kCpuArch64With32, 1}},
    {"i386", {kCpuX86, 3}},
    {"x86_64", {kCpuX86 | kCpuArch64, 3}},
    {"x86_64h", {kCpuX86 | kCpuArch64, 8}},
    {"ppc", {kCpuPowerPc, 0}},
    {"ppc64", {kCpuPowerPc | kCpuArch64, 0}},
};

}  // namespace

std::optional<ArchId> archByName(std::string_view name) {
  for (const NamedArch& arch : kArchs) {
    if (arch.name == name) return arch.id;
  }
  return std::nullopt;
}

std::string archName(uint32_t cputype, uint32_t cpusubtype) {
  for (const NamedArch& arch : kArchs) {
    if (sameArch(arch.id, {cputype, cpusubtype})) return std::string(arch.name);
  }
  return fmt::format("(cputype ({}) cpusubtype ({}))", cputype, cpusubtype & kCpuSubtypeMask);
}

bool sameArch(ArchId a, ArchId b) {
  return a.cputype == b.cputype &&
         (a.cpusubtype & kCpuSubtypeMask) == (b.cpusubtype & kCpuSubtypeMask);
}

}  // namespace tovrek::macho
