// Writes the seeds of each fuzz program into a folder of its own below the given one.
#include <cstdio>

#include "host/files.h"
#include "tests/fuzz/engine/engine_fuzzing.h"
#include "tests/fuzz/icon_seeds.h"

namespace {

bool writeSeed(const std::string& folder, const std::string& name, const std::string& bytes) {
  const std::string path = folder + "/" + name;
  if (tovrek::createDirectories(folder) && tovrek::writeFileAtomically(path, bytes)) return true;
  std::fprintf(stderr, "cannot write %s\n", path.c_str());
  return false;
}

}  // namespace

int main(int count, char** arguments) {
  if (count != 2) {
    std::fputs("usage: write_seeds FOLDER\n", stderr);
    return 2;
  }
  const std::string folder = arguments[1];
  for (const auto& [name, content] : tovrek::test::iconSeeds()) {
    if (!writeSeed(folder + "/icon", name + ".png", content)) return 1;
  }
  for (const tovrek::test::FuzzTarget& target : tovrek::test::engineFuzzTargets()) {
    for (const tovrek::test::FuzzSeed& seed : target.seeds()) {
      if (!writeSeed(folder + "/" + target.name, seed.name, seed.bytes)) return 1;
    }
  }
  return 0;
}
