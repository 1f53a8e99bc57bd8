// The layout of the load commands that are plain rows of fields.
#pragma once

#include <cstdint>
#include <span>

namespace tovrek::otool {

// How the next field of a command is stored and shown.
enum class FieldKind : uint8_t {
  kDecimal,        // 32 bits
  kDecimal64,      // 64 bits
  kHex,            // 32 bits, all eight digits
  kHex64,          // 64 bits, all sixteen digits
  kHexShort64,     // 64 bits without leading zeros
  kFileOffset,     // kDecimal, noted when beyond the file
  kFileEnd,        // kDecimal, noted when it leads beyond the file from the offset before it
  kTableEnd,       // kFileEnd for a count of entries of symbol size
  kText,           // the offset of a text in the command
  kTime,           // seconds since 1970
  kVersion,        // "a.b.c"
  kShortVersion,   // "a.b", or "a.b.c" where c is not 0
  kSdkVersion,     // kShortVersion, "n/a" for 0
  kSourceVersion,  // 64 bits
  kUuid,           // 16 bytes
  kName16,         // at most 16 bytes of text
};

// Labels end at the command's own column unless `width` sets another.
struct Field {
  const char* label;
  FieldKind kind;
  uint8_t width = 0;
};

// `exact`: the command has no room but for these fields.
struct CommandForm {
  uint32_t cmd;
  const char* name;
  uint8_t width;
  std::span<const Field> fields;
  bool exact;
};

// None for kinds that are unknown or have a listing of their own.
const CommandForm* formOf(uint32_t cmd);

}  // namespace tovrek::otool
