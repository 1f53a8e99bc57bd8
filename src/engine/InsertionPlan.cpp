#include "engine/InsertionPlan.h"

#include <algorithm>

#include "engine/command_walk.h"
#include "engine/engine_log.h"
#include "macho/pointer_models.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

// The last section counts, not the lowest.
template <class P>
void updateLimit(const Image<P>& image, const Segment<P>& segment, uint64_t* limit) {
  if (segment.record.fileoff != 0 || segment.record.filesize == 0) return;
  if (segment.sectionCount != segment.record.nsects) throw Errors::kSegmentCommandSize;
  for (const macho_section<P>& section : sectionsOf(image, segment)) {
    if (section.addr != 0 && section.size != 0 && section.offset != 0) *limit = section.offset;
  }
}

// All sections and segments count.
template <class P>
void updateLowest(const Image<P>& image, const Segment<P>& segment, uint64_t* lowest) {
  const auto lower = [&](uint64_t offset) {
    if (offset != 0) *lowest = std::min(*lowest, offset);
  };
  if (segment.record.filesize == 0) return;
  lower(segment.record.fileoff);
  for (const macho_section<P>& section : sectionsOf(image, segment)) {
    if (!isZeroFilled(section.flags) && section.size != 0) lower(section.offset);
  }
}

template <class P>
bool loads(const Image<P>& image, std::string_view dylib) {
  return std::ranges::any_of(image.libraries, [&](const CommandView& command) {
    return dylibName<P>(command).starts_with(dylib);
  });
}

// The header may claim more commands than it counts.
template <class P>
uint64_t claimedEnd(const Image<P>& image, const InsertionPlan& plan) {
  return std::max(plan.lastEnd, image.commandsEnd());
}

}  // namespace

template <class P>
InsertionPlan planInsertion(const Image<P>& image, std::string_view caller, std::string_view dylib,
                            bool unlessPresent, const WrapperLogger& logger) {
  InsertionPlan plan;
  plan.insertAt = plan.lastEnd = sizeof(image.header);
  uint32_t libraries = 0;
  visitCommands(image, [&](const CommandView& command) {
    if (plan.alreadyThere) return;
    if (command.index == 0) plan.insertAt = command.end();
    if (loadsDylib(command.cmd)) {
      plan.alreadyThere = unlessPresent && dylibName<P>(command).starts_with(dylib);
      plan.insertAt = command.end();
      ++libraries;
    }
    if (command.cmd == P::kSegmentCommand) {
      const Segment<P>* segment = segmentOf(image, command);
      if (segment == nullptr) throw Errors::kSegmentCommandSize;
      updateLimit(image, *segment, &plan.limit);
      updateLowest(image, *segment, &plan.lowest);
    }
    requireFields(image, command);
    plan.lastEnd = command.end();
    MachORebuildLib_Log(
        logger, "{}: i {} cmd {} code {:#x} cmdsize {} lastEndOfCmd {} endOfHeaderRegion {}\n",
        caller, command.index, addressOf(image.bytes, command.offset), command.cmd, command.cmdsize,
        addressOf(image.bytes, plan.lastEnd),
        plan.limit == 0 ? nullptr : addressOf(image.bytes, plan.limit));
  });
  if (libraries != 0) plan.ordinal = static_cast<uint16_t>(libraries + 1);
  return plan;
}

// What the header claims is moved too, and must not make the file grow.
template <class P>
bool hasRoom(const Image<P>& image, const InsertionPlan& plan, uint64_t added) {
  return plan.lastEnd + added < plan.limit && claimedEnd(image, plan) + added <= image.bytes.size();
}

template <class P>
void checkHeaderRoom(const Image<P>& image, const LibraryPaths& paths, const std::string& path,
                     const WrapperLogger& logger) {
  const InsertionPlan plan = planInsertion(image, "checkHeaderRoom", paths.wrapper, false, logger);
  const uint64_t added = newCommandSize(paths.wrapper) +
                         (loads(image, paths.logger) ? 0 : newCommandSize(paths.logger));
  if (!hasRoom(image, plan, added)) throw Errors::kNoRoom;
  const uint64_t end = claimedEnd(image, plan);
  const uint64_t signature =
      image.pointers.codeSignature ? 0 : sizeof(macho_linkedit_data_command<P>);
  if (end + added + signature <= plan.lowest) return;
  MachORebuildLib_Log(
      logger,
      "strictHeaderRoom refuses {}: the load commands end at {}, {} bytes are to be added, and "
      "the first data starts at {}",
      path, end, added + signature, plan.lowest);
  throw Errors::kNoRoom;
}

#define TOVREK_INSTANTIATE(P)                                                                  \
  template InsertionPlan planInsertion<P>(const Image<P>&, std::string_view, std::string_view, \
                                          bool, const WrapperLogger&);                         \
  template bool hasRoom<P>(const Image<P>&, const InsertionPlan&, uint64_t);                   \
  template void checkHeaderRoom<P>(const Image<P>&, const LibraryPaths&, const std::string&,   \
                                   const WrapperLogger&);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
