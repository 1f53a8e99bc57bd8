#include "listing/Image.h"

#include <fmt/format.h>

#include <algorithm>

namespace tovrek::listing {
namespace {

using macho::ByteView;
using macho::CommandView;

constexpr uint32_t kGigabyteZeroFill = 0xc;

std::string past(std::string_view what) {
  return fmt::format("{} extends past the end of the file", what);
}

}  // namespace

bool isZeroFill(uint32_t sectionFlags) {
  const uint32_t type = sectionFlags & macho::SECTION_TYPE_MASK;
  return type == macho::S_ZEROFILL || type == macho::S_THREAD_LOCAL_ZEROFILL ||
         type == kGigabyteZeroFill;
}

template <class P>
Image<P>::Image(ByteView image) : bytes(image) {
  if (!bytes.read(0, &header)) {
    note("the mach header extends past the end of the file");
    return;
  }
  readCommands();
  checkTables();
}

template <class P>
void Image<P>::readCommands() {
  const uint64_t start = sizeof(header);
  const uint64_t end = start + uint32_t{header.sizeofcmds};
  const uint64_t readable = std::min(end, bytes.size());
  if (end > bytes.size()) note("load commands extend past the end of the file");
  uint64_t offset = start;
  const uint32_t count = header.ncmds;
  for (uint32_t i = 0; i < count; ++i) {
    macho::macho_load_command<P> record;
    if (offset + sizeof(record) > readable || !bytes.read(offset, &record)) {
      return note(
          fmt::format("load command {} extends past the end all load commands in the file", i));
    }
    CommandView command{i, offset, record.cmd, record.cmdsize, {}};
    if (command.cmdsize < sizeof(record)) {
      return note(fmt::format("load command {} with size less than 8 bytes", i));
    }
    if (command.end() <= readable) command.bytes = bytes.sub(offset, command.cmdsize);
    commands.push_back(command);
    if (command.end() > readable) {
      return note(
          fmt::format("load command {} extends past the end all load commands in the file", i));
    }
    if (command.cmdsize % P::kPointerSize != 0) {
      note(fmt::format("load command {} cmdsize not a multiple of {}", i, P::kPointerSize));
    }
    if (command.cmd == P::kSegmentCommand) readSegment(command);
    if (macho::loadsDylib(command.cmd)) libraries.push_back(command);
    if (!pointers.record(command)) {
      note(fmt::format("load command {} cmdsize too small for its fields", i));
    }
    offset = command.end();
  }
}

template <class P>
void Image<P>::readSegment(const CommandView& command) {
  Segment<P> segment;
  if (!command.bytes.read(0, &segment.record)) {
    return note(fmt::format("load command {} segment cmdsize too small", command.index));
  }
  segment.firstSection = sections.size();
  const uint32_t count = segment.record.nsects;
  for (uint32_t i = 0; i < count; ++i) {
    macho::macho_section<P> section;
    if (!command.bytes.read(sizeof(segment.record) + uint64_t{i} * sizeof(section), &section)) {
      note(fmt::format("load command {} inconsistent cmdsize for the number of sections",
                       command.index));
      break;
    }
    sections.push_back(section);
  }
  segment.sectionCount = sections.size() - segment.firstSection;
  segments.push_back(segment);
}

template <class P>
void Image<P>::checkTables() {
  for (const Segment<P>& segment : segments) {
    if (!bytes.contains(segment.record.fileoff, segment.record.filesize)) {
      note(past(fmt::format("segment {}", segment.record.segname.view())));
    }
  }
  for (size_t i = 0; i < sections.size(); ++i) {
    if (!isZeroFill(sections[i].flags) && sections[i].size != 0 &&
        !bytes.contains(sections[i].offset, sections[i].size)) {
      note(past(fmt::format("section {} ({},{})", i + 1, sections[i].segname.view(),
                            sections[i].sectname.view())));
    }
  }
  if (pointers.symbolTable) {
    const auto& table = *pointers.symbolTable;
    const uint64_t size = uint64_t{table.nsyms} * sizeof(macho::macho_nlist<P>);
    if (!bytes.contains(table.symoff, size)) note(past("symbol table"));
    strings_ = bytes.sub(table.stroff, table.strsize);
    if (!bytes.contains(table.stroff, table.strsize)) {
      note(past("string table"));
      if (table.stroff < bytes.size()) {
        strings_ = bytes.sub(table.stroff, bytes.size() - table.stroff);
      }
    }
  }
  const std::pair<const char*, const std::optional<macho::macho_linkedit_data_command<P>>*> data[] =
      {{"code signature", &pointers.codeSignature},
       {"split info", &pointers.splitInfo},
       {"function starts", &pointers.functionStarts},
       {"data in code", &pointers.dataInCode},
       {"code signing requirements", &pointers.codeSignDrs}};
  for (const auto& [name, command] : data) {
    if (*command && !bytes.contains((*command)->dataoff, (*command)->datasize)) note(past(name));
  }
}

template <class P>
ByteView Image<P>::contents(const macho::macho_section<P>& section) const {
  if (isZeroFill(section.flags)) return {};
  return bytes.sub(section.offset, section.size);
}

template <class P>
uint64_t Image<P>::symbolCount() const {
  if (!pointers.symbolTable) return 0;
  const uint64_t start = pointers.symbolTable->symoff;
  if (start > bytes.size()) return 0;
  return std::min<uint64_t>(pointers.symbolTable->nsyms,
                            (bytes.size() - start) / sizeof(macho::macho_nlist<P>));
}

template <class P>
macho::macho_nlist<P> Image<P>::symbol(uint64_t index) const {
  macho::macho_nlist<P> record{};
  const uint64_t start = pointers.symbolTable ? uint32_t{pointers.symbolTable->symoff} : 0;
  if (!bytes.read(start + index * sizeof(record), &record)) return {};
  return record;
}

template <class P>
std::string_view Image<P>::symbolName(const macho::macho_nlist<P>& symbol) const {
  return strings_.cString(symbol.n_strx);
}

template struct Image<macho::Pointer32<macho::BigEndian>>;
template struct Image<macho::Pointer64<macho::BigEndian>>;
template struct Image<macho::Pointer32<macho::LittleEndian>>;
template struct Image<macho::Pointer64<macho::LittleEndian>>;

}  // namespace tovrek::listing
