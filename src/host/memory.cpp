#include "host/memory.h"

#include <cstdlib>  // tells which C library it is
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace tovrek {

void keepFreedMemory() {
#ifdef __GLIBC__
  ::mallopt(M_TRIM_THRESHOLD, 32 << 20);
  ::mallopt(M_MMAP_THRESHOLD, 4 << 20);
#endif
}

}  // namespace tovrek
