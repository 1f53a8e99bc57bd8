#pragma once

#include <iosfwd>

#include "Allocations.h"
#include "Order.h"

namespace tovrek::faults {

/// Has one request for memory fail, by a library that is loaded into the programs (see preload/).
class AllocationWatch {
 public:
  AllocationWatch() = default;
  ~AllocationWatch();
  AllocationWatch(const AllocationWatch&) = delete;
  AllocationWatch& operator=(const AllocationWatch&) = delete;

  /// Prepares what the order says of allocations: processes that are started from now on load the
  /// library, which lies beside this program. False with errno.
  bool start(const Order& order);

  /// Writes the count, and what was hit, as the lines of a report. Nothing without an order.
  void report(std::ostream& file) const;

 private:
  Allocations* shared_ = nullptr;
};

}  // namespace tovrek::faults
