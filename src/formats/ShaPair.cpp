#include "formats/ShaPair.h"

#include <algorithm>
#include <cstring>

namespace tovrek {
namespace {

template <size_t kCount>
std::string bigEndian(const std::array<uint32_t, kCount>& words) {
  std::string bytes;
  for (const uint32_t word : words) {
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(word >> shift & 0xff);
  }
  return bytes;
}

}  // namespace

ShaPair::ShaPair(bool withInstructions) {
  if (!withInstructions) {
    plain_.emplace(Plain{Digest(DigestAlgorithm::kSha1), Digest(DigestAlgorithm::kSha256)});
  }
  startOver();
}

void ShaPair::startOver() {
  state1_ = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476, 0xc3d2e1f0};
  state2_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
             0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  size_ = 0;
}

void ShaPair::update(std::string_view bytes) {
  if (plain_) {
    plain_->sha1.update(bytes);
    plain_->sha256.update(bytes);
    return;
  }
  const size_t waiting = size_ % block_.size();
  size_ += bytes.size();
  if (waiting != 0) {
    const size_t taken = bytes.copy(&block_[waiting], block_.size() - waiting);
    bytes.remove_prefix(taken);
    if (waiting + taken < block_.size()) return;
    addShaBlocks(state1_.data(), state2_.data(), block_.data(), 1);
  }
  const size_t whole = bytes.size() / block_.size();
  addShaBlocks(state1_.data(), state2_.data(), bytes.data(), whole);
  bytes.substr(whole * block_.size()).copy(block_.data(), block_.size());
}

ShaPair::Values ShaPair::finish() {
  if (plain_) return {plain_->sha1.finish(), plain_->sha256.finish()};
  // A one bit, zeros up to the last eight bytes of a block, and there the number of bits.
  constexpr size_t kLengthSize = 8;
  const uint64_t bits = size_ * 8;
  const size_t used = (size_ + 1 + kLengthSize) % block_.size();
  std::string padding(1 + (used == 0 ? 0 : block_.size() - used), '\0');
  padding[0] = '\x80';
  for (int shift = 56; shift >= 0; shift -= 8) padding += static_cast<char>(bits >> shift & 0xff);
  update(padding);
  Values values{bigEndian(state1_), bigEndian(state2_)};
  startOver();
  return values;
}

}  // namespace tovrek
