#include "programs/otool/segment_listing.h"

#include "programs/otool/names.h"

namespace tovrek::otool {
namespace {

using listing::Output;

constexpr uint32_t kObjectFile = 1;
constexpr uint32_t kLazyDylibSymbolPointers = 0x10;
constexpr uint32_t kThreadLocalVariablePointers = 0x14;

template <class P>
constexpr int kHexWidth = P::kPointerSize * 2;

const char* pastEnd(bool past) {
  return past ? " (past end of file)" : "";
}

std::string protection(uint32_t bits) {
  if (bits > 7) return fmt::format("?{:#010x}", bits);
  return {(bits & macho::VM_PROT_READ) != 0 ? 'r' : '-',
          (bits & macho::VM_PROT_WRITE) != 0 ? 'w' : '-',
          (bits & macho::VM_PROT_EXECUTE) != 0 ? 'x' : '-'};
}

void listSegmentFlags(uint32_t flags, Output* output) {
  uint32_t rest = 0;
  const std::string names = namesOfBits(kSegmentFlags, flags, &rest);
  output->print("    flags{}", names);
  if (rest != 0) output->print(" {:#010x} (unknown flags)", rest);
  output->text(flags == 0 ? " (none)\n" : "\n");
}

void listSectionFlags(uint32_t flags, Output* output) {
  const uint32_t type = flags & macho::SECTION_TYPE_MASK;
  const std::string_view name = nameIn(kSectionTypes, type);
  output->print("      type {}\n", name.empty() ? fmt::format("{:#010x}", type) : name);
  uint32_t rest = 0;
  const uint32_t attributes = flags & ~macho::SECTION_TYPE_MASK;
  output->print("attributes{}{}\n", attributes == 0 ? " (none)" : "",
                namesOfBits(kSectionAttributes, attributes, &rest));
}

const char* reserved1Note(uint32_t type) {
  switch (type) {
    case macho::S_SYMBOL_STUBS:
    case macho::S_LAZY_SYMBOL_POINTERS:
    case macho::S_NON_LAZY_SYMBOL_POINTERS:
    case kLazyDylibSymbolPointers:
    case kThreadLocalVariablePointers:
      return " (index into indirect symbol table)";
    default:
      return "";
  }
}

template <class P>
void listSection(const macho::Image<P>& image, std::string_view segmentName,
                 const macho::macho_section<P>& section, bool verbose, Output* output) {
  const uint64_t addr = section.addr, size = section.size, fileSize = image.bytes.size();
  const uint32_t offset = section.offset, align = section.align, reloff = section.reloff,
                 nreloc = section.nreloc, flags = section.flags;
  const uint32_t type = flags & macho::SECTION_TYPE_MASK;
  const bool foreign =
      image.header.filetype != kObjectFile && section.segname.view() != segmentName;
  const bool filled = !macho::hasNoContents(flags);
  output->print("Section\n  sectname {}\n   segname {}{}\n", section.sectname.view(),
                section.segname.view(), foreign ? " (does not match segment)" : "");
  output->print("      addr 0x{:0{}x}\n      size 0x{:0{}x}{}\n", addr, kHexWidth<P>, size,
                kHexWidth<P>, pastEnd(filled && !image.bytes.contains(offset, size)));
  output->print("    offset {}{}\n", offset, pastEnd(offset > fileSize));
  output->print("     align 2^{} ({})\n", align, align < 32 ? uint32_t{1} << align : 0);
  output->print("    reloff {}{}\n", reloff, pastEnd(reloff > fileSize));
  output->print("    nreloc {}{}\n", nreloc,
                pastEnd(uint64_t{reloff} + uint64_t{nreloc} * 8 > fileSize));
  if (verbose) {
    listSectionFlags(flags, output);
  } else {
    output->print("     flags {:#010x}\n", flags);
  }
  output->print(" reserved1 {}{}\n reserved2 {}{}\n", uint32_t{section.reserved1},
                reserved1Note(type), uint32_t{section.reserved2},
                type == macho::S_SYMBOL_STUBS ? " (size of stubs)" : "");
}

}  // namespace

template <class P>
void listSegment(const macho::Image<P>& image, const macho::CommandView& command, bool verbose,
                 Output* output) {
  macho::macho_segment_command<P> segment;
  const bool wide = P::kPointerSize == 8;
  output->print("      cmd {}\n  cmdsize {}", wide ? "LC_SEGMENT_64" : "LC_SEGMENT",
                command.cmdsize);
  if (!command.bytes.read(0, &segment)) return output->text(" Incorrect size\n");
  const uint64_t vmaddr = segment.vmaddr, vmsize = segment.vmsize, fileoff = segment.fileoff,
                 filesize = segment.filesize;
  const uint32_t maxprot = segment.maxprot, initprot = segment.initprot, count = segment.nsects,
                 flags = segment.flags;
  using Section = macho::macho_section<P>;
  const bool consistent = command.cmdsize == sizeof(segment) + uint64_t{count} * sizeof(Section);
  output->print("{}\n  segname {}\n", consistent ? "" : " Inconsistent size",
                segment.segname.view());
  output->print("   vmaddr 0x{:0{}x}\n   vmsize 0x{:0{}x}\n", vmaddr, kHexWidth<P>, vmsize,
                kHexWidth<P>);
  output->print("  fileoff {}{}\n", fileoff, pastEnd(fileoff > image.bytes.size()));
  output->print(" filesize {}{}\n", filesize, pastEnd(!image.bytes.contains(fileoff, filesize)));
  if (verbose) {
    output->print("  maxprot {}\n initprot {}\n", protection(maxprot), protection(initprot));
  } else {
    output->print("  maxprot {:#010x}\n initprot {:#010x}\n", maxprot, initprot);
  }
  output->print("   nsects {}\n", count);
  if (verbose) {
    listSegmentFlags(flags, output);
  } else {
    output->print("    flags {:#x}\n", flags);
  }
  for (uint32_t i = 0; i < count; ++i) {
    Section section;
    if (!command.bytes.read(sizeof(segment) + uint64_t{i} * sizeof(section), &section)) return;
    listSection(image, segment.segname.view(), section, verbose, output);
  }
}

#define TOVREK_INSTANTIATE(P) \
  template void listSegment(const macho::Image<P>&, const macho::CommandView&, bool, Output*);
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::otool
