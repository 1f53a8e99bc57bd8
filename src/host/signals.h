// What happens when the user interrupts a run.
#pragma once

#include <string>

namespace tovrek {

// From now on SIGINT, SIGTERM and SIGHUP are passed to the running child, the items registered
// below are removed, and the program ends by that same signal. Call once, early in main.
void installSignalHandlers();

// An item (file or folder) that must not outlive an interrupted run. Registered on construction,
// forgotten on destruction; the item itself is left to its owner. Holds at most 64 at a time;
// more are silently not covered.
class RemovedOnSignal {
 public:
  explicit RemovedOnSignal(const std::string& path);
  ~RemovedOnSignal();
  RemovedOnSignal(const RemovedOnSignal&) = delete;
  RemovedOnSignal& operator=(const RemovedOnSignal&) = delete;

 private:
  int slot_;
};

}  // namespace tovrek
