// The entry of each fuzz program. TOVREK_FUZZ_HEADER declares TOVREK_FUZZ_RUN, which takes the
// bytes of a file: any answer will do, crashes, hangs and broken promises will not.
#include <cstddef>
#include <cstdint>
#include <string>

#include TOVREK_FUZZ_HEADER

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const void* start = data;
  tovrek::test::TOVREK_FUZZ_RUN(std::string(static_cast<const char*>(start), size));
  return 0;
}
