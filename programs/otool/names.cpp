#include "programs/otool/names.h"

#include "macho/layout.h"

namespace tovrek::otool {
namespace {

using macho::kCpuArch64;
using macho::kCpuArch64With32;
using macho::kCpuArm;
using macho::kCpuPowerPc;
using macho::kCpuX86;

constexpr NamedNumber kFileTypeTable[] = {
    {1, "OBJECT"},     {2, "EXECUTE"}, {3, "FVMLIB"},      {4, "CORE"},
    {5, "PRELOAD"},    {6, "DYLIB"},   {7, "DYLINKER"},    {8, "BUNDLE"},
    {9, "DYLIB_STUB"}, {10, "DSYM"},   {11, "KEXTBUNDLE"}, {12, "FILESET"},
};

constexpr NamedNumber kHeaderFlagTable[] = {
    {0x1, "NOUNDEFS"},
    {0x2, "INCRLINK"},
    {0x4, "DYLDLINK"},
    {0x8, "BINDATLOAD"},
    {0x10, "PREBOUND"},
    {0x20, "SPLIT_SEGS"},
    {0x40, "LAZY_INIT"},
    {0x80, "TWOLEVEL"},
    {0x100, "FORCE_FLAT"},
    {0x200, "NOMULTIDEFS"},
    {0x400, "NOFIXPREBINDING"},
    {0x800, "PREBINDABLE"},
    {0x1000, "ALLMODSBOUND"},
    {0x2000, "SUBSECTIONS_VIA_SYMBOLS"},
    {0x4000, "CANONICAL"},
    {0x8000, "WEAK_DEFINES"},
    {0x10000, "BINDS_TO_WEAK"},
    {0x20000, "ALLOW_STACK_EXECUTION"},
    {0x400000, "DEAD_STRIPPABLE_DYLIB"},
    {0x200000, "PIE"},
    {0x100000, "NO_REEXPORTED_DYLIBS"},
    {0x800000, "MH_HAS_TLV_DESCRIPTORS"},
    {0x1000000, "MH_NO_HEAP_EXECUTION"},
    {0x2000000, "APP_EXTENSION_SAFE"},
    {0x4000000, "NLIST_OUTOFSYNC_WITH_DYLDINFO"},
    {0x40000, "ROOT_SAFE"},
    {0x80000, "SETUID_SAFE"},
    {0x8000000, "SIM_SUPPORT"},
    {0x40000000, "IMPLICIT_PAGEZERO"},
    {0x80000000, "DYLIB_IN_CACHE"},
};

constexpr NamedNumber kCpuTypeTable[] = {
    {kCpuX86, "I386"},
    {kCpuX86 | kCpuArch64, "X86_64"},
    {kCpuArm, "ARM"},
    {kCpuArm | kCpuArch64, "ARM64"},
    {kCpuArm | kCpuArch64With32, "ARM64_32"},
    {kCpuPowerPc, "PPC"},
    {kCpuPowerPc | kCpuArch64, "PPC64"},
};

constexpr NamedNumber kSegmentFlagTable[] = {
    {0x1, "HIGHVM"},     {0x2, "FVMLIB"}, {0x4, "NORELOC"}, {0x8, "PROTECTED_VERSION_1"},
    {0x10, "READ_ONLY"},
};

constexpr NamedNumber kSectionTypeTable[] = {
    {0x00, "S_REGULAR"},
    {0x01, "S_ZEROFILL"},
    {0x02, "S_CSTRING_LITERALS"},
    {0x03, "S_4BYTE_LITERALS"},
    {0x04, "S_8BYTE_LITERALS"},
    {0x05, "S_LITERAL_POINTERS"},
    {0x06, "S_NON_LAZY_SYMBOL_POINTERS"},
    {0x07, "S_LAZY_SYMBOL_POINTERS"},
    {0x08, "S_SYMBOL_STUBS"},
    {0x09, "S_MOD_INIT_FUNC_POINTERS"},
    {0x0a, "S_MOD_TERM_FUNC_POINTERS"},
    {0x0b, "S_COALESCED"},
    {0x0c, "S_GB_ZEROFILL"},
    {0x0d, "S_INTERPOSING"},
    {0x0e, "S_16BYTE_LITERALS"},
    {0x0f, "S_DTRACE_DOF"},
    {0x10, "S_LAZY_DYLIB_SYMBOL_POINTERS"},
    {0x11, "S_THREAD_LOCAL_REGULAR"},
    {0x12, "S_THREAD_LOCAL_ZEROFILL"},
    {0x13, "S_THREAD_LOCAL_VARIABLES"},
    {0x14, "S_THREAD_LOCAL_VARIABLE_POINTERS"},
    {0x15, "S_THREAD_LOCAL_INIT_FUNCTION_POINTERS"},
    {0x16, "S_INIT_FUNC_OFFSETS"},
};

constexpr NamedNumber kSectionAttributeTable[] = {
    {0x80000000, "PURE_INSTRUCTIONS"},
    {0x40000000, "NO_TOC"},
    {0x20000000, "STRIP_STATIC_SYMS"},
    {0x10000000, "NO_DEAD_STRIP"},
    {0x08000000, "LIVE_SUPPORT"},
    {0x04000000, "SELF_MODIFYING_CODE"},
    {0x02000000, "DEBUG"},
    {0x400, "SOME_INSTRUCTIONS"},
    {0x200, "EXT_RELOC"},
    {0x100, "LOC_RELOC"},
};

constexpr NamedNumber kPlatformTable[] = {
    {1, "MACOS"},        {2, "IOS"},           {3, "TVOS"},
    {4, "WATCHOS"},      {5, "BRIDGEOS"},      {6, "MACCATALYST"},
    {7, "IOSSIMULATOR"}, {8, "TVOSSIMULATOR"}, {9, "WATCHOSSIMULATOR"},
    {10, "DRIVERKIT"},   {11, "VISIONOS"},     {12, "VISIONOSSIMULATOR"},
};

constexpr NamedNumber kToolTable[] = {{1, "CLANG"}, {2, "SWIFT"}, {3, "LD"}, {4, "LLD"}};

constexpr NamedNumber kArmSubtypes[] = {
    {0, "ALL"},  {5, "V4T"},  {6, "V6"},   {7, "V5TEJ"}, {8, "XSCALE"}, {9, "V7"},
    {11, "V7S"}, {12, "V7K"}, {14, "V6M"}, {15, "V7M"},  {16, "V7EM"},
};
constexpr NamedNumber kArm64Subtypes[] = {{0, "ALL"}, {1, "V8"}, {2, "E"}};
constexpr NamedNumber kArm64With32Subtypes[] = {{1, "V8"}};
constexpr NamedNumber kX86Subtypes[] = {{3, "ALL"}};
constexpr NamedNumber kX86With64Subtypes[] = {{3, "ALL"}, {8, "Haswell"}};
constexpr NamedNumber kPowerPcSubtypes[] = {{0, "ALL"}};

std::span<const NamedNumber> subtypesOf(uint32_t cputype) {
  switch (cputype) {
    case kCpuArm:
      return kArmSubtypes;
    case kCpuArm | kCpuArch64:
      return kArm64Subtypes;
    case kCpuArm | kCpuArch64With32:
      return kArm64With32Subtypes;
    case kCpuX86:
      return kX86Subtypes;
    case kCpuX86 | kCpuArch64:
      return kX86With64Subtypes;
    case kCpuPowerPc:
    case kCpuPowerPc | kCpuArch64:
      return kPowerPcSubtypes;
    default:
      return {};
  }
}

std::string_view longCpuName(uint32_t cputype) {
  if (cputype == kCpuPowerPc) return "POWERPC";
  if (cputype == (kCpuPowerPc | kCpuArch64)) return "POWERPC64";
  return nameIn(kCpuTypes, cputype);
}

}  // namespace

const std::span<const NamedNumber> kFileTypes = kFileTypeTable;
const std::span<const NamedNumber> kHeaderFlags = kHeaderFlagTable;
const std::span<const NamedNumber> kCpuTypes = kCpuTypeTable;
const std::span<const NamedNumber> kSegmentFlags = kSegmentFlagTable;
const std::span<const NamedNumber> kSectionTypes = kSectionTypeTable;
const std::span<const NamedNumber> kSectionAttributes = kSectionAttributeTable;
const std::span<const NamedNumber> kPlatforms = kPlatformTable;
const std::span<const NamedNumber> kTools = kToolTable;

std::string_view nameIn(std::span<const NamedNumber> names, uint32_t number) {
  for (const NamedNumber& entry : names) {
    if (entry.number == number) return entry.name;
  }
  return {};
}

std::string namesOfBits(std::span<const NamedNumber> names, uint32_t bits, uint32_t* rest) {
  std::string result;
  for (const NamedNumber& entry : names) {
    if ((bits & entry.number) == 0) continue;
    result += ' ';
    result += entry.name;
    bits &= ~entry.number;
  }
  *rest = bits;
  return result;
}

std::string_view subtypeName(uint32_t cputype, uint32_t subtype) {
  return nameIn(subtypesOf(cputype), subtype);
}

std::string longCpuTypeName(uint32_t cputype) {
  const std::string_view name = longCpuName(cputype);
  return name.empty() ? "" : "CPU_TYPE_" + std::string(name);
}

std::string longSubtypeName(uint32_t cputype, uint32_t subtype) {
  const std::string_view name = subtypeName(cputype, subtype);
  if (name.empty()) return "";
  // The variants of one processor share the name of its first one.
  if (cputype == (kCpuX86 | kCpuArch64) && subtype != 3) return "CPU_SUBTYPE_X86_64_H";
  if (cputype == (kCpuArm | kCpuArch64) && subtype == 2) return "CPU_SUBTYPE_ARM64E";
  if (cputype == kCpuArm && subtype == 8) return "CPU_SUBTYPE_ARM_XSCALE";
  return "CPU_SUBTYPE_" + std::string(longCpuName(cputype)) + "_" + std::string(name);
}

}  // namespace tovrek::otool
