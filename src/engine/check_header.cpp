#include "engine/check_header.h"

#include "engine/MachORebuildErrors.h"
#include "macho/pointer_models.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

// No undefined symbols, perhaps also movable.
constexpr uint32_t kStaticFlags = 0x1;
constexpr uint32_t kStaticMovableFlags = 0x200001;

}  // namespace

template <class P>
void checkMachHeader(const Image<P>& image, const AcceptanceRules& rules) {
  if (image.commandsEnd() > image.bytes.size()) throw Errors::kCommandsBeyondFile;
  const uint32_t flags = image.header.flags;
  if ((flags & ~rules.headerFlags) != 0) throw Errors::kHeaderFlags;
  const uint32_t type = image.header.filetype;
  if ((flags & MH_NO_REEXPORTED_DYLIBS) != 0 && type != MH_DYLIB) throw Errors::kNoReexports;
  if (type != MH_EXECUTE && type != MH_DYLIB && type != MH_BUNDLE) throw Errors::kFileType;
}

template <class P>
void checkStaticFlags(const Image<P>& image) {
  const uint32_t flags = image.header.flags;
  if (isStatic(image) && flags != kStaticFlags && flags != kStaticMovableFlags) {
    throw Errors::kStaticFlags;
  }
}

#define TOVREK_INSTANTIATE(P)                                                \
  template void checkMachHeader<P>(const Image<P>&, const AcceptanceRules&); \
  template void checkStaticFlags<P>(const Image<P>&);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
