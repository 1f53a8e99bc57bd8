#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "call_groups.h"

namespace tovrek::faults {

/// What happens at the call that was chosen.
enum class Action { kFail, kKill, kSignal };

/// What the supervisor is to do, as its command line says.
struct Order {
  std::vector<const CallGroup*> groups;  ///< whose calls are counted, all of them as one row
  uint64_t hit = 0;                      ///< which of these calls is the chosen one; 0 for none
  Action action = Action::kFail;
  int failure = 0;  ///< the errno of the chosen call; 0 for that of its group
  int signal = 0;
  int seconds = 20;  ///< after that the tree is killed
  std::string report;
  std::vector<int> closed;           ///< descriptors that the command starts without
  std::optional<uint64_t> fileSize;  ///< the largest file that the command may write
  /// Which request for memory of Tovrek's programs fails, 0 for none; without it none is watched.
  std::optional<uint64_t> allocation;
  bool lasting = false;  ///< no later one of that process succeeds either
  std::vector<std::string> command;
};

/// Reads the command line. Says what is wrong with it in `problem` and gives nothing then.
std::optional<Order> readOrder(int count, char** words, std::string* problem);

/// How the command line is written.
std::string usage();

}  // namespace tovrek::faults
