// SHA-1 and SHA-256 of the same bytes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "formats/Digest.h"
#include "formats/sha_blocks.h"

namespace tovrek {

// Computes both digests (FIPS 180-4) in one pass. Each is a chain of instructions that wait for one
// another; where the processor has such instructions, the two chains run side by side and take
// little more time than the longer one.
class ShaPair {
 public:
  // `withInstructions` may be false anywhere, for tests of the other way.
  explicit ShaPair(bool withInstructions = hasShaInstructions());

  void update(std::string_view bytes);
  // The digests of everything since construction or the last finish; starts over.
  struct Values {
    std::string sha1;
    std::string sha256;
  };
  Values finish();

 private:
  struct Plain {
    Digest sha1;
    Digest sha256;
  };
  void startOver();

  std::optional<Plain> plain_;  // where the processor does not help
  std::array<uint32_t, 5> state1_{};
  std::array<uint32_t, 8> state2_{};
  std::array<char, 64> block_{};  // its beginning is waiting for more
  uint64_t size_ = 0;
};

}  // namespace tovrek
