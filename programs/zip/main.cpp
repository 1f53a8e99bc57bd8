#ifdef __linux__
#include <malloc.h>
#endif

#include <string>
#include <vector>

#include "host/signals.h"
#include "programs/zip/Zip.h"

namespace {

// Packing allocates and frees a buffer for each file. Memory that goes back to the system each time
// has to be fetched and cleared anew, page by page.
void keepFreedMemory() {
#ifdef __GLIBC__
  ::mallopt(M_TRIM_THRESHOLD, 32 << 20);
  ::mallopt(M_MMAP_THRESHOLD, 4 << 20);
#endif
}

}  // namespace

int main(int argc, char** argv) {
  keepFreedMemory();
  tovrek::installSignalHandlers();
  return tovrek::zip::runZipProgram({argv + (argc > 0 ? 1 : 0), argv + argc});
}
