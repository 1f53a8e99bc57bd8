// Where the reports of a child arrive.
#pragma once

#include <optional>

#include "host/progress_report.h"
#include "host/unique_fd.h"

namespace tovrek {

// A pair of sockets for ProgressReport of a child. Neither end is inherited unless it is put into
// the child by name.
class ProgressChannel {
 public:
  // The child's descriptor, the first behind the three streams.
  static constexpr int kChildDescriptor = 3;

  // False where there is none to be had, which costs nothing but the reports.
  bool open();
  bool isOpen() const { return ours_.valid(); }
  int childEnd() const { return theirs_.get(); }
  // To poll for input; -1 for none.
  int parentEnd() const { return ours_.get(); }
  void closeChildEnd() { theirs_.close(); }
  // One of the reports that have arrived; none when there is none, or no proper one.
  std::optional<Progress> receive() const;

 private:
  UniqueFd ours_, theirs_;
};

}  // namespace tovrek
