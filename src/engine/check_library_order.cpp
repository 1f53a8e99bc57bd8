#include "engine/check_library_order.h"

#include "engine/MachORebuildErrors.h"
#include "engine/command_walk.h"
#include "macho/pointer_models.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

bool isSystemLibrary(std::string_view name) {
  return name.starts_with("/usr/lib") || name.starts_with("/System/Library");
}

// Takes the names of the libraries in their order.
class OrderCheck {
 public:
  OrderCheck(bool sdkOrder, bool libraryType) : sdkOrder_(sdkOrder), libraryType_(libraryType) {}

  void next(std::string_view name) {
    if (isSystemLibrary(name)) return;
    if (contains(name, "IntuneMAM.framework/IntuneMAM")) return nextIntune();
    const bool wrapper = contains(name, "OrvaneDylib.bundle/OrvaneDylib.dylib");
    if (!wrapper && !contains(name, "Wex.framework/Wex")) return;
    if (managementSeen_) throw wrapper ? Errors::kSecondWrapperLibrary : Errors::kSecondSdkLibrary;
    managementSeen_ = true;
    if (intuneSeen_) throw wrapper ? Errors::kIntuneLinked : Errors::kIntuneBeforeSdk;
  }

 private:
  void nextIntune() {
    if (!sdkOrder_) {
      if (!libraryType_) throw Errors::kIntuneLinked;
      return;
    }
    if (intuneSeen_) throw Errors::kSecondIntuneLibrary;
    intuneSeen_ = true;
  }

  const bool sdkOrder_, libraryType_;
  bool intuneSeen_ = false;
  bool managementSeen_ = false;  // the wrapper library or the SDK: they share one place
};

}  // namespace

template <class P>
void checkOrderOfLoadDylibCommands(const Image<P>& image, bool sdkOrder, bool libraryType) {
  if (image.header.filetype != MH_EXECUTE) return;
  OrderCheck order(sdkOrder, libraryType);
  visitCommands(image, [&](const CommandView& command) {
    if (loadsDylib(command.cmd)) order.next(dylibName<P>(command));
  });
}

#define TOVREK_INSTANTIATE(P) \
  template void checkOrderOfLoadDylibCommands<P>(const Image<P>&, bool, bool);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
