#include "host/ProgressChannel.h"

#include <sys/socket.h>

#include "host/platform.h"

namespace tovrek {

bool ProgressChannel::open() {
  int ends[2];
  if (!openSocketPair(ends)) return false;
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
