#include "macho/Image.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace tovrek::macho {
namespace {

constexpr uint32_t kGigabyteZeroFill = 0xc;

std::string past(std::string_view what) {
  return fmt::format("{} extends past the end of the file", what);
}

}  // namespace

bool hasNoContents(uint32_t sectionFlags) {
  return isZeroFilled(sectionFlags) || (sectionFlags & SECTION_TYPE_MASK) == kGigabyteZeroFill;
}

template <class P>
Image<P>::Image(ByteView image) : bytes(image) {
  if (!bytes.read(0, &header)) {
    note("the mach header extends past the end of the file");
    return;
  }
  readCommands();
  checkSegments();
  checkSymbolTable();
  checkLinkEditData();
}

template <class P>
void Image<P>::readCommands() {
  using Kind = CommandDamage::Kind;
  const uint64_t readable = std::min(commandsEnd(), bytes.size());
  if (commandsEnd() > bytes.size()) note("load commands extend past the end of the file");
  uint64_t offset = sizeof(header);
  const uint32_t count = header.ncmds;
  for (uint32_t i = 0; i < count; ++i) {
    macho_load_command<P> record;
    CommandView command{i, offset, 0, 0, {}};
    const bool hasRecord = offset + sizeof(record) <= readable && bytes.read(offset, &record);
    if (hasRecord) {
      command.cmd = record.cmd;
      command.cmdsize = record.cmdsize;
    }
    if (hasRecord && command.cmdsize < sizeof(record)) {
      damage = {Kind::kTooShort, command};
      return note(fmt::format("load command {} with size less than 8 bytes", i));
    }
    if (!hasRecord || command.end() > readable) {
      damage = {hasRecord ? Kind::kCutShort : Kind::kNoHeader, command};
      if (hasRecord) commands.push_back(command);
      return note(
          fmt::format("load command {} extends past the end all load commands in the file", i));
    }
    command.bytes = bytes.sub(offset, command.cmdsize);
    readCommand(command);
    offset = command.end();
  }
}

template <class P>
void Image<P>::readCommand(const CommandView& command) {
  commands.push_back(command);
  if (command.cmdsize % P::kPointerSize != 0) {
    note(fmt::format("load command {} cmdsize not a multiple of {}", command.index,
                     P::kPointerSize));
  }
  if (command.cmd == P::kSegmentCommand) readSegment(command);
  if (loadsDylib(command.cmd)) libraries.push_back(command);
  if (!pointers.record(command)) {
    if (!firstShort) firstShort = command.index;
    note(fmt::format("load command {} cmdsize too small for its fields", command.index));
  }
}

template <class P>
void Image<P>::readSegment(const CommandView& command) {
  Segment<P> segment;
  if (!command.bytes.read(0, &segment.record)) {
    return note(fmt::format("load command {} segment cmdsize too small", command.index));
  }
  segment.command = command;
  segment.firstSection = sections.size();
  const uint32_t count = segment.record.nsects;
  for (uint32_t i = 0; i < count; ++i) {
    macho_section<P> section;
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
void Image<P>::checkSegments() {
  for (const Segment<P>& segment : segments) {
    if (!bytes.contains(segment.record.fileoff, segment.record.filesize)) {
      note(past(fmt::format("segment {}", segment.record.segname.view())));
    }
  }
  for (size_t i = 0; i < sections.size(); ++i) {
    const macho_section<P>& section = sections[i];
    if (!hasNoContents(section.flags) && section.size != 0 &&
        !bytes.contains(section.offset, section.size)) {
      note(past(fmt::format("section {} ({},{})", i + 1, section.segname.view(),
                            section.sectname.view())));
    }
  }
}

template <class P>
void Image<P>::checkSymbolTable() {
  if (!pointers.symbolTable) return;
  const auto& table = *pointers.symbolTable;
  const uint64_t size = uint64_t{table.nsyms} * sizeof(macho_nlist<P>);
  if (!bytes.contains(table.symoff, size)) note(past("symbol table"));
  strings_ = bytes.sub(table.stroff, table.strsize);
  if (bytes.contains(table.stroff, table.strsize)) return;
  note(past("string table"));
  if (table.stroff < bytes.size()) {
    strings_ = bytes.sub(table.stroff, bytes.size() - table.stroff);
  }
}

template <class P>
void Image<P>::checkLinkEditData() {
  using Data = std::optional<macho_linkedit_data_command<P>>;
  const std::pair<const char*, const Data*> all[] = {
      {"code signature", &pointers.codeSignature},
      {"split info", &pointers.splitInfo},
      {"function starts", &pointers.functionStarts},
      {"data in code", &pointers.dataInCode},
      {"code signing requirements", &pointers.codeSignDrs}};
  for (const auto& [name, data] : all) {
    if (*data && !bytes.contains((*data)->dataoff, (*data)->datasize)) note(past(name));
  }
}

template <class P>
ByteView Image<P>::contents(const macho_section<P>& section) const {
  if (hasNoContents(section.flags)) return {};
  return bytes.sub(section.offset, section.size);
}

template <class P>
uint64_t Image<P>::symbolCount() const {
  if (!pointers.symbolTable) return 0;
  const uint64_t start = pointers.symbolTable->symoff;
  if (start > bytes.size()) return 0;
  return std::min<uint64_t>(pointers.symbolTable->nsyms,
                            (bytes.size() - start) / sizeof(macho_nlist<P>));
}

template <class P>
macho_nlist<P> Image<P>::symbol(uint64_t index) const {
  macho_nlist<P> record{};
  const uint64_t start = pointers.symbolTable ? uint32_t{pointers.symbolTable->symoff} : 0;
  if (!bytes.read(start + index * sizeof(record), &record)) return {};
  return record;
}

template <class P>
std::string_view Image<P>::symbolName(const macho_nlist<P>& symbol) const {
  return strings_.cString(symbol.n_strx);
}

#define TOVREK_INSTANTIATE(P) template struct Image<P>;
TOVREK_FOR_EACH_MODEL(TOVREK_INSTANTIATE)
#undef TOVREK_INSTANTIATE

}  // namespace tovrek::macho
