#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "Order.h"
#include "ProcessTree.h"

namespace tovrek::faults {

/// The call that was hit.
struct Hit {
  const CallGroup* group = nullptr;
  const Call* call = nullptr;
  std::string subject;    ///< the path, or what the descriptor is; empty when the call has none
  std::string program;    ///< the program that made it
  std::string arguments;  ///< and the words it was started with
};

/// Answers the kernel's questions about calls: counts them and has the chosen one fail.
class CallWatcher {
 public:
  CallWatcher(const Order& order, ProcessTree& tree, int listener);

  /// Answers until no process is left that could ask, or the time is up.
  void run();

  /// How many calls of each watched group were made.
  const std::map<const CallGroup*, uint64_t>& counts() const { return counts_; }

  const Hit& hit() const { return hit_; }

  /// Whether the processes were killed because they took too long.
  bool timedOut() const { return timedOut_; }

 private:
  struct Watched {
    const CallGroup* group;
    const Call* call;
  };

  /// The memory that holds a program's loader, and whether a call of it was counted.
  struct Loader {
    uint64_t begin = 0, end = 0;  // none of it in a static program
    bool counted = false;
  };

  void answer();
  const Watched* watchedCall(const seccomp_notif& question);
  Loader& loaderOf(const seccomp_notif& question);
  bool isChosen(const seccomp_notif& question, Watched* watched);
  void strike(const seccomp_notif& question, const Watched& watched, seccomp_notif_resp* reply);
  void replaceDescriptor(const seccomp_notif& question);

  const Order& order_;
  ProcessTree& tree_;
  int listener_;
  std::multimap<long, Watched> calls_;
  std::map<const CallGroup*, uint64_t> counts_;
  std::map<uint32_t, Loader> loaders_;  // by process
  uint64_t total_ = 0;
  bool started_ = false;
  bool timedOut_ = false;
  Hit hit_;
};

}  // namespace tovrek::faults
