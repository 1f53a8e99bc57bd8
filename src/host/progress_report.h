// How far a program is, told to the one that has started it and shows that on a terminal.
#pragma once

#include <atomic>
#include <cstdint>

namespace tovrek {

// Bytes of work. Both are what a child says: whoever receives them believes neither.
struct Progress {
  uint64_t done = 0;
  uint64_t total = 0;  // 0: not known
};

// The variable that names a child's descriptor for its reports, a datagram socket, which only
// runProcess() sets.
inline constexpr char kProgressVariable[] = "TOVREK_PROGRESS_FD";

// The reports of one program about one piece of work. Where nobody asks for them it does nothing.
// A report never waits: one that nobody takes is lost.
class ProgressReport {
 public:
  // Tells of the beginning.
  explicit ProgressReport(uint64_t total = 0);
  // Tells of the end.
  ~ProgressReport();
  ProgressReport(const ProgressReport&) = delete;
  ProgressReport& operator=(const ProgressReport&) = delete;

  // So many bytes more are done, which is told ten times a second at most. Any thread may call it.
  void add(uint64_t bytes);

 private:
  void send() const;

  const int descriptor_;  // -1: nobody asks
  const uint64_t total_;
  std::atomic<uint64_t> done_{0};
  std::atomic<int64_t> next_;  // when to tell again, in nanoseconds of the steady clock
};

}  // namespace tovrek
