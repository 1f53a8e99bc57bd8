// What happens when the user interrupts a run.
#pragma once

#include <string>

namespace tovrek {

// From now on SIGINT, SIGTERM and SIGHUP are passed to the running child, the items registered
// below are removed, and the program ends by that same signal. Call once, early in main.
void installSignalHandlers();

// Ends the process with this status, after what an interruption does: the running child is ended,
// the registered items are removed. Nothing is unwound or flushed. Any thread may call it, whatever
// it holds; with the handlers installed it is the main thread that ends, so that none goes on
// beside the removal.
[[noreturn]] void endProcess(int status) noexcept;

// Removes the items that are registered below, by a program of the system: takes no memory.
void removeRegisteredItems();

// For a copy of this process that is to be a program of its own: what is registered below, and the
// running child, are its parent's.
void forgetInterruptions();

// An item (file or folder) that must not outlive an interrupted run. Registered on construction,
// forgotten on destruction; the item itself is left to its owner. Where an exception takes the
// owner, the item stays registered, for removeRegisteredItems(). Holds at most 64 at a time; more
// are silently not covered.
class RemovedOnSignal {
 public:
  explicit RemovedOnSignal(const std::string& path);
  ~RemovedOnSignal();
  RemovedOnSignal(const RemovedOnSignal&) = delete;
  RemovedOnSignal& operator=(const RemovedOnSignal&) = delete;

 private:
  int slot_;
  int exceptions_;  // under way when it was made
};

}  // namespace tovrek
