#include "host/ProgressChannel.h"

#include <fcntl.h>
#include <sys/socket.h>

namespace tovrek {

bool ProgressChannel::open() {
  int ends[2];
#ifdef SOCK_CLOEXEC
  if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) != 0) return false;
#else
  if (::socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) != 0) return false;
  ::fcntl(ends[0], F_SETFD, FD_CLOEXEC);
  ::fcntl(ends[1], F_SETFD, FD_CLOEXEC);
#endif
  ours_ = UniqueFd(ends[0]);
  theirs_ = UniqueFd(ends[1]);
  return true;
}

std::optional<Progress> ProgressChannel::receive() const {
  Progress progress;
  // A longer message is cut, and its length still told.
  const ssize_t got = ::recv(ours_.get(), &progress, sizeof progress, MSG_DONTWAIT | MSG_TRUNC);
  if (got != static_cast<ssize_t>(sizeof progress)) return std::nullopt;
  return progress;
}

}  // namespace tovrek
