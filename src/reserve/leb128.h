// Variable-length numbers (LEB128) read and written with the engine's own failures. The engine
// itself reads them by macho/leb128.h.
#pragma once

#include <cstdint>

namespace tovrek {

// Reads one number that starts at `start` and lies before `end`. Throws macho::EngineText with
// "uleb128 too big for 64-bits" or "malformed uleb128 extends beyond trie".
uint64_t wex_read_uleb128(const uint8_t* start, const uint8_t* end);

// The writers need room for ten bytes and answer the last byte that they wrote. Those with a
// cursor move it behind that byte.
uint8_t wex_write_uleb128(uint64_t value, uint8_t* buffer);
uint8_t write_uleb128(uint64_t value, uint8_t*& cursor);
uint8_t wex_write_sleb128(int64_t value, uint8_t* buffer);
uint8_t write_sleb128(int64_t value, uint8_t*& cursor);

// Reads one signed number and moves the cursor behind it. Throws macho::EngineText with
// "sleb128 too big for 64-bits" or "malformed sleb128".
int64_t read_sleb128(const uint8_t*& cursor, const uint8_t* end);

namespace mach_o::trie {
// As wex_read_uleb128, and moves the cursor behind the number.
uint64_t read_uleb128(const uint8_t*& cursor, const uint8_t* end);
}  // namespace mach_o::trie

}  // namespace tovrek
