// Which management libraries an executable loads, and in which order.
#include "engine/MachOChecker.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool isSystemLibrary(std::string_view name) {
  return name.starts_with("/usr/lib") || name.starts_with("/System/Library");
}

}  // namespace

template <class Arch>
void MachOChecker<Arch>::checkOrderOfLoadDylibCommands(bool sdkOrder) const {
  if (header_.filetype != MH_EXECUTE) return;
  bool intuneSeen = false;
  bool managementSeen = false;  // the wrapper library or the SDK: they share one place
  forEachCommand([&](const CommandView& command) {
    if (!loadsDylib(command.cmd)) return;
    const std::string_view name = dylibName<P>(command);
    if (isSystemLibrary(name)) return;
    if (contains(name, "IntuneMAM.framework/IntuneMAM")) {
      if (!sdkOrder) {
        if (!libraryType_) throw Errors::kIntuneLinked;
        return;
      }
      if (intuneSeen) throw Errors::kSecondIntuneLibrary;
      intuneSeen = true;
      return;
    }
    const bool wrapper = contains(name, "OrvaneDylib.bundle/OrvaneDylib.dylib");
    if (!wrapper && !contains(name, "Wex.framework/Wex")) return;
    if (managementSeen) throw wrapper ? Errors::kSecondWrapperLibrary : Errors::kSecondSdkLibrary;
    managementSeen = true;
    if (intuneSeen) throw wrapper ? Errors::kIntuneLinked : Errors::kIntuneBeforeSdk;
  });
}

#define TOVREK_INSTANTIATE(Arch) \
  template void MachOChecker<Arch>::checkOrderOfLoadDylibCommands(bool) const;
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
