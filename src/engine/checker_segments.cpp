// Segments and their sections: sizes, overlaps, and containment in each other and in the file.
#include "engine/MachOChecker.h"

namespace tovrek::macho {
template <class Arch>
void MachOChecker<Arch>::checkSegments() {
  forEachCommand([this](const CommandView& command) {
    if (command.cmd == P::kSegmentCommand) checkSegment(command);
  });
}

template <class Arch>
void MachOChecker<Arch>::checkSegment(const CommandView& command) {
  Segment segment;
  if (!command.bytes.read(0, &segment) ||
      command.cmdsize != sizeof(Segment) + uint64_t{segment.nsects} * sizeof(Section)) {
    throw MachORebuildErrors::kSegmentCommandSize;
  }
  checkSegmentRanges(segment);
  rememberSegment(segment);
  for (uint32_t i = 0; i < segment.nsects; ++i) {
    Section section;
    if (!command.bytes.read(sizeof(Segment) + uint64_t{i} * sizeof(Section), &section)) {
      throw MachORebuildErrors::kSegmentCommandSize;
    }
    checkSection(segment, section);
  }
}

template <class Arch>
void MachOChecker<Arch>::checkSegmentRanges(const Segment& segment) {
  const uint64_t fileEnd = endOf(segment.fileoff, segment.filesize);
  if (!vmRanges_.add(segment.vmaddr, segment.vmsize)) throw MachORebuildErrors::kSegmentVmOverlap;
  if (!fileRanges_.add(segment.fileoff, segment.filesize)) {
    throw MachORebuildErrors::kSegmentFileOverlap;
  }
  // Found while comparing with earlier segments, of which the first has none.
  if (!segments_.empty() && fileEnd > image_.size()) {
    throw MachORebuildErrors::kSegmentDataBeyondFile;
  }
  if (segment.fileoff > image_.size()) throw MachORebuildErrors::kSegmentOffsetBeyondFile;
  if (fileEnd > image_.size()) throw MachORebuildErrors::kSegmentEndBeyondFile;
}

template <class Arch>
void MachOChecker<Arch>::rememberSegment(const Segment& segment) {
  const std::string_view name = segment.segname.view();
  if (name == kTextSegment && !textSegment_) textSegment_ = segment;
  if (name == kStackSegment) stackSegment_ = segment;
  if ((segment.initprot & VM_PROT_WRITE) != 0) {
    if (!firstWritable_) firstWritable_ = segments_.size();
    writableRanges_.add(segment.vmaddr, segment.vmsize);
  }
  if (segment.vmaddr > uint64_t{0x100000000}) highBase_ = true;
  segments_.push_back(segment);
}

template <class Arch>
void MachOChecker<Arch>::checkSection(const Segment& segment, const Section& section) {
  if (!liesInside(section.addr, section.size, segment.vmaddr, segment.vmsize)) {
    throw MachORebuildErrors::kSectionAddress;
  }
  const bool hasData = !isZeroFilled(section.flags) && section.size != 0 && segment.filesize != 0;
  if (hasData && !liesInside(section.offset, section.size, segment.fileoff, segment.filesize)) {
    throw MachORebuildErrors::kSectionOffset;
  }
  sections_.push_back({section, (segment.initprot & VM_PROT_WRITE) != 0});
}

#define TOVREK_INSTANTIATE(Arch)                                        \
  template void MachOChecker<Arch>::checkSegments();                    \
  template void MachOChecker<Arch>::checkSegment(const CommandView&);   \
  template void MachOChecker<Arch>::checkSegmentRanges(const Segment&); \
  template void MachOChecker<Arch>::rememberSegment(const Segment&);    \
  template void MachOChecker<Arch>::checkSection(const Segment&, const Section&);
TOVREK_FOR_EACH_ARCH(TOVREK_INSTANTIATE)

}  // namespace tovrek::macho
