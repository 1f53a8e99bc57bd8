// What the process runner tells the signal handler.
#pragma once

#include <signal.h>
#include <sys/types.h>

namespace tovrek {

// Holds back the signals that end a run, so that a child cannot be started or reaped without
// the handler knowing.
class SignalsBlocked {
 public:
  SignalsBlocked();
  ~SignalsBlocked();
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  // The mask as it was, for the child to start with.
  const sigset_t& oldMask() const { return old_; }

 private:
  sigset_t old_;
};

// The child, leader of its process group, to pass signals on to; 0 for none.
void setRunningChild(pid_t child);

}  // namespace tovrek
