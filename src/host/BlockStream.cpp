#include "host/BlockStream.h"

namespace tovrek {
namespace {

constexpr size_t kBlockSize = size_t{1} << 18;  // stays in a core's cache

}  // namespace

BlockStream::BlockStream(std::function<void(std::string_view)> consume)
    : consume_(std::move(consume)), filling_(kBlockSize), inUse_(kBlockSize) {
  consumer_ = startHelper([this] { useBlocks(); });
}

BlockStream::~BlockStream() {
  handOn();
  if (!consumer_) return;
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  consumer_->join();
}

std::span<char> BlockStream::room() {
  if (filled_ == filling_.size()) handOn();
  return std::span(filling_).subspan(filled_);
}

void BlockStream::took(size_t size) {
  filled_ += size;
}

void BlockStream::handOn() {
  if (!consumer_) {
    consume_({filling_.data(), filled_});
    filled_ = 0;
    return;
  }
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_ == 0; });
    filling_.swap(inUse_);
    waiting_ = filled_;
    filled_ = 0;
  }
  changed_.notify_one();
}

void BlockStream::useBlocks() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return waiting_ != 0 || ended_; });
    if (waiting_ == 0) return;
    // Only this thread uses the block until it says that nothing waits.
    const std::string_view block(inUse_.data(), waiting_);
    lock.unlock();
    consume_(block);
    lock.lock();
    waiting_ = 0;
    changed_.notify_one();
  }
}

}  // namespace tovrek
