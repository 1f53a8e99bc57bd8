// Which images the checker accepts, as far as it is a matter of policy.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

#include "macho/layout.h"

namespace tovrek::macho {

// Load commands that images of every architecture may hold. The two segment and the two routines
// commands are left to the pointer model.
inline constexpr uint32_t kAcceptedCommands[] = {
    LC_SYMTAB,
    LC_UNIXTHREAD,
    LC_DYSYMTAB,
    LC_LOAD_DYLIB,
    LC_ID_DYLIB,
    LC_LOAD_DYLINKER,
    LC_ID_DYLINKER,
    LC_SUB_FRAMEWORK,
    LC_SUB_UMBRELLA,
    LC_SUB_CLIENT,
    LC_SUB_LIBRARY,
    LC_TWOLEVEL_HINTS,
    LC_PREBIND_CKSUM,
    LC_LOAD_WEAK_DYLIB,
    LC_UUID,
    LC_RPATH,
    LC_CODE_SIGNATURE,
    LC_SEGMENT_SPLIT_INFO,
    LC_REEXPORT_DYLIB,
    LC_LAZY_LOAD_DYLIB,
    LC_ENCRYPTION_INFO,
    LC_DYLD_INFO,
    LC_DYLD_INFO_ONLY,
    LC_LOAD_UPWARD_DYLIB,
    LC_VERSION_MIN_MACOSX,
    LC_VERSION_MIN_IPHONEOS,
    LC_FUNCTION_STARTS,
    LC_DYLD_ENVIRONMENT,
    LC_MAIN,
    LC_DATA_IN_CODE,
    LC_SOURCE_VERSION,
    LC_DYLIB_CODE_SIGN_DRS,
    LC_ENCRYPTION_INFO_64,
    LC_VERSION_MIN_TVOS,
    LC_VERSION_MIN_WATCHOS,
    LC_NOTE,
    LC_BUILD_VERSION,
};

// The other published commands that name nothing outside the link-edit segment. Left out are those
// with places of their own choice (LC_SYMSEG, LC_LOADFVMLIB, LC_IDFVMLIB, LC_FVMFILE, LC_THREAD,
// LC_FILESET_ENTRY) or without a published form (LC_PREPAGE).
inline constexpr uint32_t kModernCommands[] = {
    LC_IDENT,
    LC_PREBOUND_DYLIB,
    LC_LINKER_OPTION,
    LC_LINKER_OPTIMIZATION_HINT,
    LC_DYLD_EXPORTS_TRIE,
    LC_DYLD_CHAINED_FIXUPS,
    LC_ATOM_INFO,
    LC_FUNCTION_VARIANTS,
    LC_FUNCTION_VARIANT_FIXUPS,
    LC_TARGET_TRIPLE,
};

// The defaults are the rules of the product. Passed by value, so that a caller may widen its own
// copy without touching anybody else's.
struct AcceptanceRules {
  // Header flags that may be set.
  uint32_t headerFlags = 0x01ffffbd;
  std::span<const uint32_t> commands = kAcceptedCommands;
  std::span<const uint32_t> moreCommands = {};
  // The string pool must start at a multiple of this many bytes; 0 stands for the pointer size.
  uint32_t stringPoolAlignment = 0;
  // Whether tables that are streams of bytes may have any size, not only multiples of pointers.
  bool anyTableSize = false;
  // Whether a library may have an encryption command of which no use was made.
  bool idleEncryptionInLibraries = false;

  bool acceptsCommand(uint32_t cmd) const {
    const auto holds = [cmd](std::span<const uint32_t> list) {
      return std::ranges::find(list, cmd) != list.end();
    };
    return holds(commands) || holds(moreCommands);
  }
};

// What today's linkers and strippers write is accepted too; whatever the default rules accept,
// these do.
inline constexpr AcceptanceRules kModernRules = {
    .headerFlags = 0x9fffffff,  // all that are published
    .moreCommands = kModernCommands,
    .stringPoolAlignment = 4,
    .anyTableSize = true,
    .idleEncryptionInLibraries = true,
};

}  // namespace tovrek::macho
