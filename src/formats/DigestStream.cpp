#include "formats/DigestStream.h"

#include "host/parallel.h"

namespace tovrek {
namespace {

constexpr size_t kBlockSize = size_t{1} << 19;  // half of what a core's cache mostly holds

}  // namespace

DigestStream::DigestStream(Digest& digest)
    : digest_(digest), filling_(kBlockSize), hashing_(kBlockSize) {
  hasher_ = startHelper([this] { hashBlocks(); });
}

DigestStream::~DigestStream() {
  handOn();
  if (!hasher_) return;
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  changed_.notify_one();
  hasher_->join();
}

std::span<char> DigestStream::room() {
  if (filled_ == filling_.size()) handOn();
  return std::span(filling_).subspan(filled_);
}

void DigestStream::took(size_t size) {
  filled_ += size;
}

void DigestStream::handOn() {
  if (!hasher_) {
    digest_.update(std::string_view(filling_.data(), filled_));
    filled_ = 0;
    return;
  }
  {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return waiting_ == 0; });
    filling_.swap(hashing_);
    waiting_ = filled_;
    filled_ = 0;
  }
  changed_.notify_one();
}

void DigestStream::hashBlocks() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return waiting_ != 0 || ended_; });
    if (waiting_ == 0) return;
    // Only this thread touches the block until it says that nothing waits.
    const std::string_view block(hashing_.data(), waiting_);
    lock.unlock();
    digest_.update(block);
    lock.lock();
    waiting_ = 0;
    changed_.notify_one();
  }
}

}  // namespace tovrek
