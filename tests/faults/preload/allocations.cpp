// Loaded into every program that the supervisor watches: counts what is asked of the allocator, and
// has the chosen request fail. Programs of ours alone call the allocator by these names; those of
// the system are left alone.
#include "Allocations.h"

#include <dlfcn.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

using tovrek::faults::Allocations;

Allocations* attach() {
  const char* const id = ::getenv(Allocations::kVariable);
  void* const memory = id == nullptr ? nullptr : ::shmat(::atoi(id), nullptr, 0);
  return memory == reinterpret_cast<void*>(-1) ? nullptr : static_cast<Allocations*>(memory);
}

bool failsNow(size_t size) {
  // Constructors of libraries allocate before any of this one's have run.
  static bool attached = false;
  static Allocations* shared = nullptr;
  if (!attached) {
    attached = true;
    shared = attach();
  }
  if (shared == nullptr) return false;
  const bool isChosen = shared->count.fetch_add(1) + 1 == shared->failing;
  if (isChosen) {
    shared->size = size;
    const ssize_t length =
        ::readlink("/proc/self/exe", shared->program, sizeof shared->program - 1);
    if (length < 0) shared->program[0] = '\0';
    shared->process.store(::getpid());
  }
  const bool fails = isChosen || (shared->lasting && shared->process.load() == ::getpid());
  if (fails) errno = ENOMEM;
  return fails;
}

template <class Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {
void* __libc_malloc(size_t size) {
  static const auto allocate = next<void* (*)(size_t)>("__libc_malloc");
  return failsNow(size) ? nullptr : allocate(size);
}

void* __libc_calloc(size_t count, size_t size) {
  static const auto allocate = next<void* (*)(size_t, size_t)>("__libc_calloc");
  return failsNow(count * size) ? nullptr : allocate(count, size);
}

void* __libc_realloc(void* memory, size_t size) {
  static const auto allocate = next<void* (*)(void*, size_t)>("__libc_realloc");
  return size != 0 && failsNow(size) ? nullptr : allocate(memory, size);
}
}
