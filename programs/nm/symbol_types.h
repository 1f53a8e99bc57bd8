// Types and flags of symbols, after the published <mach-o/nlist.h>.
#pragma once

#include <cstdint>

namespace tovrek::nm {

// Bits of `n_type`.
inline constexpr uint8_t kExternal = 0x01, kTypeMask = 0x0e, kPrivateExternal = 0x10,
                         kDebuggerMask = 0xe0;

// What is left of it under the mask.
inline constexpr uint8_t kUndefined = 0x0, kAbsolute = 0x2, kIndirect = 0xa, kPrebound = 0xc,
                         kInSection = 0xe;

// Bits of `n_desc`.
inline constexpr uint16_t kReferenceMask = 0x7, kUndefinedLazy = 0x1, kThumb = 0x8,
                          kReferencedDynamically = 0x10, kNoDeadStrip = 0x20, kWeakReference = 0x40,
                          kWeakDefinition = 0x80, kResolver = 0x100, kAltEntry = 0x200,
                          kColdFunction = 0x400;

}  // namespace tovrek::nm
