// Which images the checker accepts, as far as it is a matter of policy.
#pragma once

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

// The defaults are the rules of the product. Passed by value, so that a caller may widen its own
// copy without touching anybody else's.
struct AcceptanceRules {
  // Header flags that may be set.
  uint32_t headerFlags = 0x01ffffbd;
  std::span<const uint32_t> commands = kAcceptedCommands;
  // Whether the string pool must start at, and be as long as, a multiple of the pointer size.
  bool stringPoolAligned = true;

  bool acceptsCommand(uint32_t cmd) const {
    for (uint32_t accepted : commands) {
      if (accepted == cmd) return true;
    }
    return false;
  }
};

}  // namespace tovrek::macho
