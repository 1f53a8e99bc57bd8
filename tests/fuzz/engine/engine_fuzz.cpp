// The entry of each engine fuzz program; TOVREK_FUZZ_RUN is what it runs.
#include "tests/fuzz/engine/engine_fuzzing.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const void* start = data;
  tovrek::test::TOVREK_FUZZ_RUN({static_cast<const char*>(start), size});
  return 0;
}
