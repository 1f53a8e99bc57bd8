// Writes the seed corpus for icon_fuzz: write_icon_seeds FOLDER
#include <cstdio>

#include "host/files.h"
#include "tests/fuzz/icon_seeds.h"

int main(int count, char** arguments) {
  if (count != 2) {
    std::fputs("usage: write_icon_seeds FOLDER\n", stderr);
    return 2;
  }
  const std::string folder = arguments[1];
  if (!tovrek::createDirectories(folder)) return 1;
  for (const auto& [name, content] : tovrek::test::iconSeeds()) {
    if (!tovrek::writeFileAtomically(folder + "/" + name + ".png", content)) return 1;
  }
  return 0;
}
