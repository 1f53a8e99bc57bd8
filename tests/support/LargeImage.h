// Mach-O images of any size, for measurements and tests of growth.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/MachOBuilder.h"

namespace tovrek::test {

// How much of everything. All names are different, all initialisers lie in the code and are
// slid, and relocation entries (which arm64 images cannot have) are in order.
struct LargeImage {
  TestArch arch = kArm64;
  uint64_t codeSize = 0x1000;
  uint32_t symbols = 0;    // defined
  uint32_t undefined = 0;  // all with a name of their own
  uint32_t initializers = 0;
  uint32_t localRelocations = 0;
  uint32_t externalRelocations = 0;
  // Sections that all name the same initialisers.
  uint32_t initializerSections = 1;

  // A valid executable.
  std::string build() const;
};

// An image of about `size` bytes in the proportions of a real program: mostly code, a tenth
// symbols and names, some initialisers.
LargeImage proportionedImage(const TestArch& arch, uint64_t size);

}  // namespace tovrek::test
