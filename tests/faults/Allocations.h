#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>

namespace tovrek::faults {

/// What the supervisor and the programs that it watches know of allocations; lies in memory that
/// all of them share. No path leads to it, so that a confined program can use it as well.
struct Allocations {
  static constexpr char kVariable[] = "TOVREK_FAULT_ALLOCATIONS";  ///< the id of the memory
  static constexpr uint64_t kNever = 0;

  std::atomic<uint64_t> count{0};   ///< of all programs
  uint64_t failing = kNever;        ///< which of them fails
  bool lasting = false;             ///< all later ones of that process fail as well
  std::atomic<int32_t> process{0};  ///< where it has failed
  uint64_t size = 0;                ///< how many bytes were wanted then
  char program[256] = {};           ///< and by which program
};

}  // namespace tovrek::faults
