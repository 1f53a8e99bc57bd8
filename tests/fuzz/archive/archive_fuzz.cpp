// Random archives through the reader: any answer will do, crashes and hangs will not.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/archive/archive_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  tovrek::test::readArchive(std::string(reinterpret_cast<const char*>(data), size));
  return 0;
}
