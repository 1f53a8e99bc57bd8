// Damage, byte by byte.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>

namespace tovrek::test {

// Shows `look` the bytes with one of them changed, for places behind the magic number: every
// `headStep` bytes among the load commands, every `step` behind them, but for the zeros between
// contents and the next page, which nobody reads.
template <class Look>
void forEachChangedByte(std::string bytes, size_t headStep, size_t step, Look look) {
  constexpr size_t kHead = 0x700, kAround = 128;
  for (size_t at = 4; at < bytes.size(); at += at < kHead ? headStep : step) {
    if (bytes.find_first_not_of('\0', at - std::min(at, kAround)) > at + kAround) continue;
    for (const char value : {'\x01', '\xff'}) {
      const char old = std::exchange(bytes[at], value);
      look(bytes);
      bytes[at] = old;
    }
  }
}

}  // namespace tovrek::test
