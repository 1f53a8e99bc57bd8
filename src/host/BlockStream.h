// Using bytes while the next ones are being read.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <functional>
#include <mutex>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "host/parallel.h"

namespace tovrek {

// Gives a stream of bytes to a consumer in a thread of its own, in blocks: one is used while the
// other is filled.
class BlockStream {
 public:
  explicit BlockStream(std::function<void(std::string_view)> consume);
  // Returns when everything is used.
  ~BlockStream();
  BlockStream(const BlockStream&) = delete;
  BlockStream& operator=(const BlockStream&) = delete;

  // Where the next bytes go; never empty.
  std::span<char> room();
  // The first `size` bytes of the room were filled.
  void took(size_t size);

 private:
  void useBlocks();
  // Hands the block that was filled to the thread, which must be done with the one before.
  void handOn();

  std::function<void(std::string_view)> consume_;
  std::vector<char> filling_;
  std::vector<char> inUse_;
  size_t filled_ = 0;  // of `filling_`
  std::mutex mutex_;
  std::condition_variable changed_;
  size_t waiting_ = 0;  // bytes of `inUse_` that are not used yet
  bool ended_ = false;
  std::optional<Helper> consumer_;  // none where there are no threads to be had
};

}  // namespace tovrek
