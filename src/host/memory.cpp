#include "host/memory.h"

#ifdef __linux__
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
