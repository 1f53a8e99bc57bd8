#include "programs/otool/library_listing.h"

#include <algorithm>
#include <string>
#include <utility>

namespace tovrek::otool {
namespace {

using listing::Output;

std::string dotted(uint32_t version) {
  return fmt::format("{}.{}.{}", version >> 16, version >> 8 & 0xff, version & 0xff);
}

std::string_view kindNote(uint32_t cmd) {
  constexpr std::pair<uint32_t, std::string_view> kNotes[] = {
      {macho::LC_LOAD_WEAK_DYLIB, ", weak"},
      {macho::LC_REEXPORT_DYLIB, ", reexport"},
      {macho::LC_LAZY_LOAD_DYLIB, ", lazy"},
      {macho::LC_LOAD_UPWARD_DYLIB, ", upward"}};
  const auto* note = std::ranges::find(kNotes, cmd, &std::pair<uint32_t, std::string_view>::first);
  return note == std::end(kNotes) ? "" : note->second;
}

}  // namespace

template <class P>
void listLibraries(const macho::Image<P>& image, Output* output) {
  for (const macho::CommandView& command : image.commands) {
    if (!macho::loadsDylib(command.cmd) && command.cmd != macho::LC_ID_DYLIB) continue;
    macho::macho_dylib_command<P> dylib;
    if (!command.bytes.read(0, &dylib)) continue;
    const uint32_t offset = dylib.name_offset;
    if (offset >= command.bytes.size()) {
      output->print("\tBad offset ({}) for name of load command {}\n", offset, command.index);
      continue;
    }
    output->print("\t{} (compatibility version {}, current version {}{})\n",
                  command.bytes.cString(offset), dotted(dylib.compatibility_version),
                  dotted(dylib.current_version), kindNote(command.cmd));
  }
}

template <class P>
void listLibraryId(const macho::Image<P>& image, Output* output) {
  for (const macho::CommandView& command : image.commands) {
    if (command.cmd == macho::LC_ID_DYLIB) output->print("{}\n", macho::dylibName<P>(command));
  }
}

#define TOVREK_INSTANTIATE(P)                                   \
  template void listLibraries(const macho::Image<P>&, Output*); \
  template void listLibraryId(const macho::Image<P>&, Output*);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::otool
