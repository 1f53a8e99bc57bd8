// Ownership of a file descriptor.
#pragma once

#include <unistd.h>

#include <utility>

namespace tovrek {

// Closes its descriptor on destruction; -1 stands for none.
class UniqueFd {
 public:
  explicit UniqueFd(int fd = -1) : fd_(fd) {}
  UniqueFd(UniqueFd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  UniqueFd& operator=(UniqueFd&& other) noexcept {
    if (this != &other) {
      close();
      fd_ = std::exchange(other.fd_, -1);
    }
    return *this;
  }
  ~UniqueFd() { close(); }

  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }
  // Hands the descriptor over to another owner.
  int release() { return std::exchange(fd_, -1); }
  // Closes now. False when the system reports a failed delayed write.
  bool close() { return fd_ < 0 || ::close(std::exchange(fd_, -1)) == 0; }

 private:
  int fd_;
};

}  // namespace tovrek
