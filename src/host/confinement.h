// What the kernel itself keeps a run from.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace tovrek {

enum class Confinement {
  kOn,
  kOff,          // TOVREK_CONFINE=0
  kUnsupported,  // the kernel has no Landlock, or does not let it be used
};

// The files and folders, with all that is in them, that a process needs. A path that does not exist
// counts for nothing; links are followed now.
struct NeededPlaces {
  std::vector<std::string> toWrite{};  // to make, write, rename and remove files in, and to read
  std::optional<std::vector<std::string>> toRead{};  // none: everything may be read
};

// From now on this process, and the children that it starts, can get at these places alone,
// whatever a hostile file makes them try, and get no privileges by starting a set-id program.
// Looking for names and links, and asking for modes and sizes, stays possible everywhere. For a
// process of one thread; there is no way back.
Confinement confine(const NeededPlaces& places);

// Whether TOVREK_CONFINE says that it is not to be.
bool confinementIsOff();

// A process that ends by a fault leaves no picture of its memory, with passwords and keys in it;
// its children neither.
void forbidCoreDumps();

}  // namespace tovrek
