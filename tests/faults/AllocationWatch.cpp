#include "AllocationWatch.h"

#include <stdlib.h>
#include <sys/shm.h>
#include <unistd.h>

#include <new>
#include <ostream>
#include <string>

#include "ProcessTree.h"

namespace tovrek::faults {

AllocationWatch::~AllocationWatch() {
  if (shared_ != nullptr) ::shmdt(shared_);
}

bool AllocationWatch::start(const Order& order) {
  if (!order.allocation) return true;
  const std::string own = programOf(::getpid());
  const std::string library = own.substr(0, own.rfind('/') + 1) + "libfault_allocations.so";
  if (::access(library.c_str(), R_OK) != 0) return false;
  const int id = ::shmget(IPC_PRIVATE, sizeof(Allocations), 0600);
  if (id < 0) return false;
  void* const memory = ::shmat(id, nullptr, 0);
  // It can be used by its number until the last process that does is gone, this one included.
  ::shmctl(id, IPC_RMID, nullptr);
  if (memory == reinterpret_cast<void*>(-1)) return false;
  shared_ = new (memory) Allocations;
  shared_->failing = *order.allocation;
  shared_->lasting = order.lasting;
  return ::setenv("LD_PRELOAD", library.c_str(), 1) == 0 &&
         ::setenv(Allocations::kVariable, std::to_string(id).c_str(), 1) == 0;
}

void AllocationWatch::report(std::ostream& file) const {
  if (shared_ == nullptr) return;
  file << "count allocation " << shared_->count << '\n';
  if (shared_->process == 0) return;
  file << "hit allocation allocation\npath " << shared_->size << " bytes\nprogram "
       << shared_->program << '\n';
}

}  // namespace tovrek::faults
