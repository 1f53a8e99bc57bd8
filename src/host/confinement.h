// What the kernel itself keeps a run from.
#pragma once

#include <string>
#include <vector>

namespace tovrek {

enum class Confinement {
  kOn,
  kOff,          // TOVREK_CONFINE=0
  kUnsupported,  // the kernel has no Landlock, or does not let it be used
};

// From now on this process, and the children that it starts, can make, write, rename and remove
// files only below these folders, whatever a hostile file makes them try, and get no privileges by
// starting a set-id program; reading stays as it is. A path that does not exist, and a file that is
// no folder, counts as it is then or not at all. For a process of one thread; there is no way back.
Confinement confineWriting(const std::vector<std::string>& folders);

// Whether TOVREK_CONFINE says that it is not to be.
bool confinementIsOff();

// A process that ends by a fault leaves no picture of its memory, with passwords and keys in it;
// its children neither.
void forbidCoreDumps();

}  // namespace tovrek
