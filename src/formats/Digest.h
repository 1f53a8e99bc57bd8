// Message digests (OpenSSL).
#pragma once

#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "formats/hex.h"  // for everybody: digests are shown as digits

namespace tovrek {

enum class DigestAlgorithm { kMd5, kSha1, kSha256, kSha384, kSha512 };

// Takes data in pieces. Digests come as raw bytes.
class Digest {
 public:
  explicit Digest(DigestAlgorithm algorithm);
  ~Digest();
  Digest(Digest&&) noexcept;
  Digest& operator=(Digest&&) noexcept;

  void update(std::span<const std::byte> bytes);
  void update(std::string_view bytes);
  // The digest of all so far; starts anew after that.
  std::string finish();

 private:
  struct Context;
  std::unique_ptr<Context> context_;
};

std::string digestOf(DigestAlgorithm algorithm, std::string_view bytes);
std::string digestOf(DigestAlgorithm algorithm, std::span<const std::byte> bytes);

}  // namespace tovrek
