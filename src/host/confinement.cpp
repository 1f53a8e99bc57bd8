#include "host/confinement.h"

#include <sys/resource.h>

#include <cstdlib>
#include <string_view>

#include "host/platform.h"

namespace tovrek {

bool confinementIsOff() {
  const char* wish = std::getenv("TOVREK_CONFINE");
  return wish != nullptr && std::string_view(wish) == "0";
}

Confinement confine(const NeededPlaces& places) {
  if (confinementIsOff()) return Confinement::kOff;
  return restrictTo(places) ? Confinement::kOn : Confinement::kUnsupported;
}

void forbidCoreDumps() {
  // Room for one byte: a collector of core dumps that the kernel starts is started at a limit of
  // none as well, but not at this one.
  const rlimit none{1, 1};
  ::setrlimit(RLIMIT_CORE, &none);
}

}  // namespace tovrek
