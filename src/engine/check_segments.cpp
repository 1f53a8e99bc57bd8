#include "engine/check_segments.h"

#include <vector>

#include "engine/command_walk.h"
#include "macho/pointer_models.h"
#include "macho/rounding.h"

namespace tovrek::macho {
namespace {

using Errors = MachORebuildErrors;

struct Range {
  uint64_t start, size;

  bool overlaps(const Range& other) const {
    return size != 0 && other.size != 0 && start < endOf(other.start, other.size) &&
           other.start < endOf(start, size);
  }
};

// What the segments so far take up.
struct TakenRanges {
  struct Pair {
    Range memory, file;
  };
  IntervalSet memory, file;
  std::vector<Pair> inOrder;
};

// Compares with one earlier segment after another, as the loader's rules are worded: which rule
// counts as broken depends on the earliest that is. That takes long for many segments, so it is
// left to images that are known to be wrong.
[[noreturn]] void throwFirstConflict(const TakenRanges::Pair& segment, uint64_t fileSize,
                                     const TakenRanges& taken) {
  for (const TakenRanges::Pair& earlier : taken.inOrder) {
    if (segment.memory.overlaps(earlier.memory)) throw Errors::kSegmentVmOverlap;
    if (segment.file.overlaps(earlier.file)) throw Errors::kSegmentFileOverlap;
    if (endOf(segment.file.start, segment.file.size) > fileSize) {
      throw Errors::kSegmentDataBeyondFile;
    }
  }
  if (segment.file.start > fileSize) throw Errors::kSegmentOffsetBeyondFile;
  throw Errors::kSegmentEndBeyondFile;
}

template <class P>
void checkSegmentRanges(const macho_segment_command<P>& segment, uint64_t fileSize,
                        TakenRanges* taken) {
  const TakenRanges::Pair ranges{{segment.vmaddr, segment.vmsize},
                                 {segment.fileoff, segment.filesize}};
  const bool fits = segment.fileoff <= fileSize &&
                    endOf(segment.fileoff, segment.filesize) <= fileSize &&
                    taken->memory.add(segment.vmaddr, segment.vmsize) &&
                    taken->file.add(segment.fileoff, segment.filesize);
  if (!fits) throwFirstConflict(ranges, fileSize, *taken);
  taken->inOrder.push_back(ranges);
}

template <class P>
void rememberSegment(const macho_segment_command<P>& segment, SegmentFacts<P>* facts) {
  const std::string_view name = segment.segname.view();
  if (name == kTextSegment && !facts->text) facts->text = segment;
  if (name == kStackSegment) facts->stack = segment;
  if ((segment.initprot & VM_PROT_WRITE) != 0) {
    if (!facts->firstWritable) facts->firstWritable = segment.vmaddr;
    facts->writable.add(segment.vmaddr, segment.vmsize);
  }
  if (segment.vmaddr > uint64_t{0x100000000}) facts->highBase = true;
}

template <class P>
void checkSection(const macho_segment_command<P>& segment, const macho_section<P>& section) {
  if (!liesInside(section.addr, section.size, segment.vmaddr, segment.vmsize)) {
    throw Errors::kSectionAddress;
  }
  const bool hasData = !isZeroFilled(section.flags) && section.size != 0 && segment.filesize != 0;
  if (hasData && !liesInside(section.offset, section.size, segment.fileoff, segment.filesize)) {
    throw Errors::kSectionOffset;
  }
}

}  // namespace

template <class P>
SegmentFacts<P> checkSegments(const Image<P>& image) {
  SegmentFacts<P> facts;
  TakenRanges taken;
  visitCommands(image, [&](const CommandView& command) {
    if (command.cmd != P::kSegmentCommand) return;
    const Segment<P>* segment = segmentOf(image, command);
    if (segment == nullptr) throw Errors::kSegmentCommandSize;
    const macho_segment_command<P>& record = segment->record;
    if (command.cmdsize != sizeof(record) + uint64_t{record.nsects} * sizeof(macho_section<P>)) {
      throw Errors::kSegmentCommandSize;
    }
    checkSegmentRanges(record, image.bytes.size(), &taken);
    rememberSegment(record, &facts);
    for (const auto& section : sectionsOf(image, *segment)) checkSection(record, section);
  });
  return facts;
}

template <class P>
void checkRequiredSegments(const Image<P>& image, const SegmentFacts<P>& facts) {
  if (!image.pointers.linkEdit) throw Errors::kNoLinkEdit;
  if (!facts.text) throw Errors::kNoText;
  if (facts.text->initprot != (VM_PROT_READ | VM_PROT_EXECUTE)) throw Errors::kTextProtection;
  if (facts.text->fileoff != 0) throw Errors::kTextOffset;
  if (facts.text->filesize < image.commandsEnd()) throw Errors::kTextTooSmall;
}

#define TOVREK_INSTANTIATE(P)                                 \
  template SegmentFacts<P> checkSegments<P>(const Image<P>&); \
  template void checkRequiredSegments<P>(const Image<P>&, const SegmentFacts<P>&);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
