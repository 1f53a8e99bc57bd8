// The entry of the fuzz program for signatures and requirements.
#include <cstddef>
#include <cstdint>

#include "tests/fuzz/signing_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const void* start = data;
  tovrek::test::fuzzSigning({static_cast<const char*>(start), size});
  return 0;
}
