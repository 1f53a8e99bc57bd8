// What the fuzz programs do with the engine, and the inputs they start from; the ordinary tests
// replay the same.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tovrek::test {

// Each takes the bytes of a file and gives how it went: "ok", a code in digits, or the engine's
// own words. A broken promise (a file that grew, bytes changed behind the commands) aborts.
std::string fuzzCheck(std::string_view bytes);
std::string fuzzInsertion(std::string_view bytes);
// The table of a universal file, read for joining and for checking; both must agree.
std::string fuzzFat(std::string_view bytes);

struct FuzzSeed {
  std::string name;
  std::string bytes;
};
// Good and slightly damaged images of all architectures; what the fuzzers have found is here too.
std::vector<FuzzSeed> imageSeeds();
std::vector<FuzzSeed> fatSeeds();

// A target, by the name of its program and of its folder of seeds.
struct FuzzTarget {
  const char* name;
  std::string (*run)(std::string_view bytes);
  std::vector<FuzzSeed> (*seeds)();
};
std::span<const FuzzTarget> engineFuzzTargets();

}  // namespace tovrek::test
