// Hashing while the next bytes are being read.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <span>
#include <thread>
#include <vector>

#include "formats/Digest.h"

namespace tovrek {

// Feeds a digest from a thread of its own, in blocks: one is hashed while the other is filled. The
// digest must be left alone until the stream is gone.
class DigestStream {
 public:
  explicit DigestStream(Digest& digest);
  // Returns when everything is hashed.
  ~DigestStream();
  DigestStream(const DigestStream&) = delete;
  DigestStream& operator=(const DigestStream&) = delete;

  // Where the next bytes go; never empty.
  std::span<char> room();
  // The first `size` bytes of the room were filled.
  void took(size_t size);

 private:
  void hashBlocks();
  // Hands the block that was filled to the thread, which must be done with the one before.
  void handOn();

  Digest& digest_;
  std::vector<char> filling_;
  std::vector<char> hashing_;
  size_t filled_ = 0;  // of `filling_`
  std::mutex mutex_;
  std::condition_variable changed_;
  size_t waiting_ = 0;  // bytes of `hashing_` that are not hashed yet
  bool ended_ = false;
  std::optional<std::thread> hasher_;  // none where there are no threads to be had
};

}  // namespace tovrek
