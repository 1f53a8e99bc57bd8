// Programs that run beside each other.
#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

// How a program ended.
struct ChildEnd {
  int status = 0;          // exit status, or the signal's number
  bool signalled = false;  // a signal ended it
  bool outlasted = false;  // it was ended because its time was over
};

// A child to start: with the environment of this process as it is, without input, and as the head
// of a group of its own.
struct ChildOrder {
  std::vector<std::string> argv{};  // the program's path first
  std::string workingDirectory{};   // empty: this process's
  std::string output{};             // the file that takes all that it prints; made anew
  // How long it may run; none for as long as it likes. Then its whole group is asked to end, and
  // some seconds later killed.
  std::optional<std::chrono::seconds> limit{};
};

// The children that several threads have started and wait for.
class Children {
 public:
  // Starts the program and waits for its end. False, with the reason, when it could not be started
  // or waited for, and after stop().
  bool run(ChildOrder order, ChildEnd* end, ErrorText* error);
  // Passes the signal on to all that run, and starts no more.
  void stop(int signal);
  bool isStopped();

 private:
  int start(ChildOrder* order, int output, int* child);
  bool reap(int child, ChildEnd* end, ErrorText* error);

  std::mutex mutex_;
  std::set<int> running_;
  bool stopped_ = false;
};

}  // namespace tovrek
