// The Mach-O records as they lie in a file, after the published <mach-o/loader.h>, <mach-o/fat.h>,
// <mach-o/nlist.h> and <mach-o/reloc.h> formats.
//
// Records are templates over a pointer model, which carries all that differs between 32 and 64
// bits and between the byte orders. Field names are the format's own.
#pragma once

#include <array>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "macho/byte_order.h"

namespace tovrek::macho {

// --- Constants ---

inline constexpr uint32_t kFatMagic = 0xcafebabe;

inline constexpr uint32_t kCpuArch64 = 0x01000000;
inline constexpr uint32_t kCpuArch64With32 = 0x02000000;
inline constexpr uint32_t kCpuX86 = 7;
inline constexpr uint32_t kCpuArm = 12;
inline constexpr uint32_t kCpuPowerPc = 18;
// The upper byte of a cpusubtype holds capability bits.
inline constexpr uint32_t kCpuSubtypeMask = 0x00ffffff;

enum FileType : uint32_t { MH_EXECUTE = 2, MH_DYLIB = 6, MH_DYLINKER = 7, MH_BUNDLE = 8 };

enum HeaderFlag : uint32_t {
  MH_SPLIT_SEGS = 0x20,
  MH_NO_REEXPORTED_DYLIBS = 0x100000,
  MH_PIE = 0x200000
};

inline constexpr uint32_t kRequiredByDyld = 0x80000000;

enum LoadCommand : uint32_t {
  LC_SEGMENT = 0x1,
  LC_SYMTAB = 0x2,
  LC_UNIXTHREAD = 0x5,
  LC_IDENT = 0x8,
  LC_DYSYMTAB = 0xb,
  LC_LOAD_DYLIB = 0xc,
  LC_ID_DYLIB = 0xd,
  LC_LOAD_DYLINKER = 0xe,
  LC_ID_DYLINKER = 0xf,
  LC_PREBOUND_DYLIB = 0x10,
  LC_ROUTINES = 0x11,
  LC_SUB_FRAMEWORK = 0x12,
  LC_SUB_UMBRELLA = 0x13,
  LC_SUB_CLIENT = 0x14,
  LC_SUB_LIBRARY = 0x15,
  LC_TWOLEVEL_HINTS = 0x16,
  LC_PREBIND_CKSUM = 0x17,
  LC_LOAD_WEAK_DYLIB = 0x18 | kRequiredByDyld,
  LC_SEGMENT_64 = 0x19,
  LC_ROUTINES_64 = 0x1a,
  LC_UUID = 0x1b,
  LC_RPATH = 0x1c | kRequiredByDyld,
  LC_CODE_SIGNATURE = 0x1d,
  LC_SEGMENT_SPLIT_INFO = 0x1e,
  LC_REEXPORT_DYLIB = 0x1f | kRequiredByDyld,
  LC_LAZY_LOAD_DYLIB = 0x20,
  LC_ENCRYPTION_INFO = 0x21,
  LC_DYLD_INFO = 0x22,
  LC_DYLD_INFO_ONLY = 0x22 | kRequiredByDyld,
  LC_LOAD_UPWARD_DYLIB = 0x23 | kRequiredByDyld,
  LC_VERSION_MIN_MACOSX = 0x24,
  LC_VERSION_MIN_IPHONEOS = 0x25,
  LC_FUNCTION_STARTS = 0x26,
  LC_DYLD_ENVIRONMENT = 0x27,
  LC_MAIN = 0x28 | kRequiredByDyld,
  LC_DATA_IN_CODE = 0x29,
  LC_SOURCE_VERSION = 0x2a,
  LC_DYLIB_CODE_SIGN_DRS = 0x2b,
  LC_ENCRYPTION_INFO_64 = 0x2c,
  LC_LINKER_OPTION = 0x2d,
  LC_LINKER_OPTIMIZATION_HINT = 0x2e,
  LC_VERSION_MIN_TVOS = 0x2f,
  LC_VERSION_MIN_WATCHOS = 0x30,
  LC_NOTE = 0x31,
  LC_BUILD_VERSION = 0x32,
  LC_DYLD_EXPORTS_TRIE = 0x33 | kRequiredByDyld,
  LC_DYLD_CHAINED_FIXUPS = 0x34 | kRequiredByDyld,
  LC_ATOM_INFO = 0x36,
  LC_FUNCTION_VARIANTS = 0x37,
  LC_FUNCTION_VARIANT_FIXUPS = 0x38,
  LC_TARGET_TRIPLE = 0x39
};

// LC_BUILD_VERSION's numbers for platforms.
enum Platform : uint32_t {
  kPlatformMacos = 1,
  kPlatformIos = 2,
  kPlatformTvos = 3,
  kPlatformWatchos = 4
};

// Values of `pointer_format` in chained fix-ups.
enum ChainedPointerFormat : uint16_t {
  DYLD_CHAINED_PTR_ARM64E = 1,
  DYLD_CHAINED_PTR_64 = 2,
  DYLD_CHAINED_PTR_32 = 3,
  DYLD_CHAINED_PTR_32_CACHE = 4,
  DYLD_CHAINED_PTR_32_FIRMWARE = 5,
  DYLD_CHAINED_PTR_64_OFFSET = 6,
  DYLD_CHAINED_PTR_ARM64E_KERNEL = 7,
  DYLD_CHAINED_PTR_64_KERNEL_CACHE = 8,
  DYLD_CHAINED_PTR_ARM64E_USERLAND = 9,
  DYLD_CHAINED_PTR_ARM64E_FIRMWARE = 10,
  DYLD_CHAINED_PTR_X86_64_KERNEL_CACHE = 11,
  DYLD_CHAINED_PTR_ARM64E_USERLAND24 = 12
};

enum Protection : uint32_t { VM_PROT_READ = 1, VM_PROT_WRITE = 2, VM_PROT_EXECUTE = 4 };

enum SectionType : uint32_t {
  SECTION_TYPE_MASK = 0xff,
  S_ZEROFILL = 0x1,
  S_NON_LAZY_SYMBOL_POINTERS = 0x6,
  S_LAZY_SYMBOL_POINTERS = 0x7,
  S_SYMBOL_STUBS = 0x8,
  S_MOD_INIT_FUNC_POINTERS = 0x9,
  S_MOD_TERM_FUNC_POINTERS = 0xa,
  S_THREAD_LOCAL_ZEROFILL = 0x12,
  S_ATTR_LOC_RELOC = 0x100
};

// Sections that take up memory but no room in the file.
constexpr bool isZeroFilled(uint32_t sectionFlags) {
  const uint32_t type = sectionFlags & SECTION_TYPE_MASK;
  return type == S_ZEROFILL || type == S_THREAD_LOCAL_ZEROFILL;
}

enum SymbolType : uint8_t { N_EXT = 0x01, N_TYPE = 0x0e, N_SECT = 0x0e, N_STAB = 0xe0 };

inline constexpr char kTextSegment[] = "__TEXT";
inline constexpr char kLinkEditSegment[] = "__LINKEDIT";
inline constexpr char kStackSegment[] = "__UNIXSTACK";

// --- Pointer models ---

struct NoField {};

template <class ByteOrder>
struct Pointer32 {
  using Order = ByteOrder;
  using Word = Stored<uint32_t, Order>;
  using Address = Stored<uint32_t, Order>;
  using Integer = uint32_t;
  using WordOnlyIn64 = NoField;
  static constexpr uint32_t kPointerSize = 4;
  static constexpr uint32_t kMagic = 0xfeedface;
  static constexpr uint32_t kSegmentCommand = LC_SEGMENT;
  static constexpr uint32_t kRoutinesCommand = LC_ROUTINES;
};

template <class ByteOrder>
struct Pointer64 {
  using Order = ByteOrder;
  using Word = Stored<uint32_t, Order>;
  using Address = Stored<uint64_t, Order>;
  using Integer = uint64_t;
  using WordOnlyIn64 = Word;
  static constexpr uint32_t kPointerSize = 8;
  static constexpr uint32_t kMagic = 0xfeedfacf;
  static constexpr uint32_t kSegmentCommand = LC_SEGMENT_64;
  static constexpr uint32_t kRoutinesCommand = LC_ROUTINES_64;
};

// --- Names of at most 16 bytes ---

// NUL-terminated only when shorter than the field.
struct FixedName {
  std::array<char, 16> letters{};
  std::string_view view() const { return {letters.data(), strnlen(letters.data(), 16)}; }
};

// --- Records of a thin image ---

template <class P>
struct macho_header {
  typename P::Word magic, cputype, cpusubtype, filetype, ncmds, sizeofcmds, flags;
  [[no_unique_address]] typename P::WordOnlyIn64 reserved;
};

template <class P>
struct macho_load_command {
  typename P::Word cmd, cmdsize;
};

template <class P>
struct macho_segment_command {
  typename P::Word cmd, cmdsize;
  FixedName segname;
  typename P::Address vmaddr, vmsize, fileoff, filesize;
  typename P::Word maxprot, initprot, nsects, flags;
};

template <class P>
struct macho_section {
  FixedName sectname, segname;
  typename P::Address addr, size;
  typename P::Word offset, align, reloff, nreloc, flags, reserved1, reserved2;
  [[no_unique_address]] typename P::WordOnlyIn64 reserved3;
};

template <class P>
struct macho_symtab_command {
  typename P::Word cmd, cmdsize, symoff, nsyms, stroff, strsize;
};

template <class P>
struct macho_dysymtab_command {
  typename P::Word cmd, cmdsize;
  typename P::Word ilocalsym, nlocalsym, iextdefsym, nextdefsym, iundefsym, nundefsym;
  typename P::Word tocoff, ntoc, modtaboff, nmodtab, extrefsymoff, nextrefsyms;
  typename P::Word indirectsymoff, nindirectsyms, extreloff, nextrel, locreloff, nlocrel;
};

// LC_CODE_SIGNATURE, LC_SEGMENT_SPLIT_INFO, LC_FUNCTION_STARTS, LC_DATA_IN_CODE,
// LC_DYLIB_CODE_SIGN_DRS and the like.
template <class P>
struct macho_linkedit_data_command {
  typename P::Word cmd, cmdsize, dataoff, datasize;
};

// LC_ENCRYPTION_INFO; LC_ENCRYPTION_INFO_64 has four bytes of padding behind it.
template <class P>
struct macho_encryption_info_command {
  typename P::Word cmd, cmdsize, cryptoff, cryptsize, cryptid;
};

template <class P>
struct macho_dyld_info_command {
  typename P::Word cmd, cmdsize;
  typename P::Word rebase_off, rebase_size, bind_off, bind_size, weak_bind_off, weak_bind_size;
  typename P::Word lazy_bind_off, lazy_bind_size, export_off, export_size;
};

// The registers follow.
template <class P>
struct macho_thread_command {
  typename P::Word cmd, cmdsize, flavor, count;
};

template <class P>
struct macho_entry_point_command {
  typename P::Word cmd, cmdsize;
  Stored<uint64_t, typename P::Order> entryoff, stacksize;
};

template <class P>
struct macho_uuid_command {
  typename P::Word cmd, cmdsize;
  std::array<std::byte, 16> uuid;
};

template <class P>
struct macho_version_min_command {
  typename P::Word cmd, cmdsize, version, sdk;
};

// `ntools` pairs of words follow.
template <class P>
struct macho_build_version_command {
  typename P::Word cmd, cmdsize, platform, minos, sdk, ntools;
};

// The name lies `name_offset` bytes after the start of the command.
template <class P>
struct macho_dylib_command {
  typename P::Word cmd, cmdsize, name_offset, timestamp, current_version, compatibility_version;
};

template <class P>
struct macho_nlist {
  typename P::Word n_strx;
  uint8_t n_type, n_sect;
  Stored<uint16_t, typename P::Order> n_desc;
  typename P::Address n_value;
};

// One relocation entry. The second word is made of bit fields, which the two byte orders fill
// from opposite ends.
template <class P>
struct macho_relocation_info {
  typename P::Word r_address, r_info;

  static constexpr bool kLittle = std::is_same_v<typename P::Order, LittleEndian>;
  uint32_t bits(uint32_t fromLow, uint32_t width) const {
    const uint32_t shift = kLittle ? fromLow : 32 - fromLow - width;
    return (static_cast<uint32_t>(r_info) >> shift) & ((1U << width) - 1);
  }
  uint32_t r_symbolnum() const { return bits(0, 24); }
  uint32_t r_pcrel() const { return bits(24, 1); }
  uint32_t r_length() const { return bits(25, 2); }
  uint32_t r_extern() const { return bits(27, 1); }
  uint32_t r_type() const { return bits(28, 4); }

  // Scattered entries (32-bit images only) pack everything but the value into the first word,
  // the same way for both byte orders.
  bool isScattered() const { return (r_address & 0x80000000U) != 0; }
  uint32_t scatteredLength() const { return (r_address >> 28) & 3; }
  uint32_t scatteredType() const { return (r_address >> 24) & 0xf; }
  uint32_t scatteredAddress() const { return r_address & 0x00ffffff; }

  // Where the entry applies, from the base of its image's relocations.
  uint32_t distance() const {
    return P::kPointerSize == 4 && isScattered() ? scatteredAddress() : uint32_t{r_address};
  }
};

// --- Universal files: always big-endian ---

struct fat_header {
  Stored<uint32_t, BigEndian> magic, nfat_arch;
};

// `align` is a power of two.
struct fat_arch {
  Stored<uint32_t, BigEndian> cputype, cpusubtype, offset, size, align;
};

// --- What the format fixes ---

template <class T, size_t Size>
inline constexpr bool kIsRecord = sizeof(T) == Size &&
                                  alignof(T) == 1 && std::is_trivially_copyable_v<T>;

using Narrow = Pointer32<LittleEndian>;
using Wide = Pointer64<LittleEndian>;
static_assert(kIsRecord<macho_header<Narrow>, 28> && kIsRecord<macho_header<Wide>, 32>);
static_assert(kIsRecord<macho_load_command<Narrow>, 8>);
static_assert(kIsRecord<macho_segment_command<Narrow>, 56>);
static_assert(kIsRecord<macho_segment_command<Wide>, 72>);
static_assert(kIsRecord<macho_section<Narrow>, 68> && kIsRecord<macho_section<Wide>, 80>);
static_assert(kIsRecord<macho_symtab_command<Wide>, 24>);
static_assert(kIsRecord<macho_dysymtab_command<Wide>, 80>);
static_assert(kIsRecord<macho_linkedit_data_command<Wide>, 16>);
static_assert(kIsRecord<macho_encryption_info_command<Wide>, 20>);
static_assert(kIsRecord<macho_dyld_info_command<Wide>, 48>);
static_assert(kIsRecord<macho_thread_command<Wide>, 16>);
static_assert(kIsRecord<macho_entry_point_command<Narrow>, 24>);
static_assert(kIsRecord<macho_uuid_command<Wide>, 24>);
static_assert(kIsRecord<macho_version_min_command<Wide>, 16>);
static_assert(kIsRecord<macho_build_version_command<Wide>, 24>);
static_assert(kIsRecord<macho_dylib_command<Wide>, 24>);
static_assert(kIsRecord<macho_nlist<Narrow>, 12> && kIsRecord<macho_nlist<Wide>, 16>);
static_assert(kIsRecord<macho_relocation_info<Wide>, 8>);
static_assert(kIsRecord<fat_header, 8> && kIsRecord<fat_arch, 20>);

}  // namespace tovrek::macho
