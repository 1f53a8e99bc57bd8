// Writes the seeds of each engine fuzz target into a folder of its own below the given one.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "tests/fuzz/engine/engine_fuzzing.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: write_engine_seeds FOLDER\n");
    return 2;
  }
  for (const tovrek::test::FuzzTarget& target : tovrek::test::engineFuzzTargets()) {
    const std::filesystem::path folder = std::filesystem::path(argv[1]) / target.name;
    std::error_code failure;
    std::filesystem::create_directories(folder, failure);
    for (const tovrek::test::FuzzSeed& seed : target.seeds()) {
      std::ofstream file(folder / seed.name, std::ios::binary);
      if (!(file << seed.bytes).flush()) {
        std::fprintf(stderr, "cannot write %s\n", (folder / seed.name).c_str());
        return 1;
      }
    }
  }
  return 0;
}
