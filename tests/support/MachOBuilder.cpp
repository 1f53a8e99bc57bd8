#include "tests/support/MachOBuilder.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>

namespace tovrek::test {

std::string stored(const TestArch& arch, uint64_t value, uint32_t width) {
  std::string bytes;
  for (uint32_t i = 0; i < width; ++i) {
    const uint32_t shift = 8 * (arch.bigEndian ? width - 1 - i : i);
    bytes += static_cast<char>((value >> shift) & 0xff);
  }
  return bytes;
}

void patch(std::string* bytes, uint64_t offset, const std::string& with) {
  if (offset + with.size() > bytes->size()) bytes->resize(offset + with.size());
  bytes->replace(offset, with.size(), with);
}

TestRecord& TestRecord::number(const std::string& name, uint32_t width, uint64_t value) {
  fields_.push_back({name, width, value, {}});
  return *this;
}

TestRecord& TestRecord::name16(const std::string& text) {
  fields_.push_back({"", 16, 0, text});
  return *this;
}

uint64_t& TestRecord::operator[](const std::string& field) {
  for (Field& candidate : fields_) {
    if (candidate.name == field) return candidate.value;
  }
  throw std::invalid_argument("no field " + field);
}

void TestRecord::rename(const std::string& text) {
  for (Field& field : fields_) {
    if (field.name.empty()) {
      field.text = text;
      return;
    }
  }
}

std::string TestRecord::bytes(const TestArch& arch) const {
  std::string result;
  for (const Field& field : fields_) {
    if (field.name.empty()) {
      std::string name = field.text;
      name.resize(16);
      result += name;
    } else {
      result += stored(arch, field.value, field.width);
    }
  }
  return result;
}

std::string TestFixups::bytes() const {
  const TestArch order{"", false, true, 0, 0};
  std::string result;
  const auto words = [&](std::initializer_list<uint32_t> values) {
    for (uint32_t value : values) result += stored(order, value, 4);
  };
  words({version, startsOffset, 0, 0, 0, 1, 0, 0});
  words({segmentCount});
  for (uint32_t i = 0; i < 4; ++i) words({i == segment ? segmentStarts : 0});
  words({0});
  const auto count = pageCount.value_or(static_cast<uint16_t>(pages.size()));
  words({static_cast<uint32_t>(22 + 2 * (pages.size() + lists.size()))});
  result += stored(order, pageSize, 2) + stored(order, format, 2);
  result += stored(order, segmentOffset, 8) + stored(order, maxValidPointer, 4);
  result += stored(order, count, 2);
  for (const auto* starts : {&pages, &lists}) {
    for (uint16_t start : *starts) result += stored(order, start, 2);
  }
  return result;
}

uint64_t chained64(uint64_t target, uint64_t next, bool bound) {
  return target | (next / 4) << 51 | uint64_t{bound} << 63;
}

uint64_t chainedArm64e(uint64_t target, uint64_t next, bool bound, bool signedPointer,
                       uint64_t stride) {
  return target | (next / stride) << 51 | uint64_t{bound} << 62 | uint64_t{signedPointer} << 63;
}

uint64_t chained32(uint64_t target, uint64_t next, bool bound) {
  return target | (next / 4) << 26 | uint64_t{bound} << 31;
}

MachOBuilder::MachOBuilder(const TestArch& forArch) : arch(forArch) {
  header.number("magic", 4, arch.is64 ? 0xfeedfacf : 0xfeedface)
      .number("cputype", 4, arch.cputype)
      .number("cpusubtype", 4, arch.cpusubtype)
      .number("filetype", 4, 2)
      .number("ncmds", 4, 0)
      .number("sizeofcmds", 4, 0)
      .number("flags", 4, 0x200085);
  if (arch.is64) header.number("reserved", 4, 0);
  // "_main" and "_helper" are defined, "_printf" is not.
  strings = std::string("\0_main\0_helper\0_printf\0", 23);
  strings.resize(32);
  symbols = {{1, 0x0f, 1}, {7, 0x0f, 1}, {15, 0x01, 0}};
  initializers = {textAddress() + kTextOffset, textAddress() + kTextOffset + 8};
  // Pointers in segment 2 from its start on: both initializers and two lazy pointers.
  rebase = std::string("\x11\x22\x00\x54\x00", 5);
  // The last of them is also bound, to "_printf".
  bind = std::string("\x11\x40_printf\0\x51\x72", 12) + static_cast<char>(3 * arch.pointerSize()) +
         std::string("\x90\x00", 2);
  addSegments();
  addTables();
}

TestRecord MachOBuilder::newCommand(uint32_t cmd) const {
  TestRecord record;
  record.number("cmd", 4, cmd).number("cmdsize", 4, 0);
  return record;
}

TestCommand MachOBuilder::newSegment(const std::string& name, uint64_t vmaddr, uint64_t vmsize,
                                     uint64_t fileoff, uint64_t filesize,
                                     uint32_t protection) const {
  const uint32_t p = arch.pointerSize();
  TestCommand segment{newCommand(arch.is64 ? 0x19 : 0x1), {}, {}};
  segment.fields.name16(name)
      .number("vmaddr", p, vmaddr)
      .number("vmsize", p, vmsize)
      .number("fileoff", p, fileoff)
      .number("filesize", p, filesize)
      .number("maxprot", 4, 7)
      .number("initprot", 4, protection)
      .number("nsects", 4, 0)
      .number("segflags", 4, 0);
  return segment;
}

TestRecord MachOBuilder::newSection(const std::string& segmentName, const std::string& name,
                                    uint64_t addr, uint64_t size, uint64_t offset,
                                    uint32_t flags) const {
  TestRecord section;
  section.name16(name)
      .name16(segmentName)
      .number("addr", arch.pointerSize(), addr)
      .number("size", arch.pointerSize(), size)
      .number("offset", 4, offset)
      .number("align", 4, 0)
      .number("reloff", 4, 0)
      .number("nreloc", 4, 0)
      .number("flags", 4, flags)
      .number("reserved1", 4, 0)
      .number("reserved2", 4, 0);
  if (arch.is64) section.number("reserved3", 4, 0);
  return section;
}

void MachOBuilder::addSegments() {
  const uint64_t text = textAddress(), data = dataAddress(), p = arch.pointerSize();
  commands.push_back(newSegment("__PAGEZERO", 0, text, 0, 0, 0));

  TestCommand code = newSegment("__TEXT", text, 0x2000, 0, 0x2000, 5);
  code.sections.push_back(
      newSection("__TEXT", "__text", text + kTextOffset, 0x100, kTextOffset, 0x400));
  commands.push_back(code);

  TestCommand variables = newSegment("__DATA", data, 0x2000, kDataOffset, 0x1000, 3);
  variables.sections.push_back(
      newSection("__DATA", "__mod_init_func", data, 2 * p, kDataOffset, 9));
  variables.sections.push_back(
      newSection("__DATA", "__la_symbol_ptr", data + 2 * p, 2 * p, kDataOffset + 2 * p, 7));
  variables.sections.push_back(newSection("__DATA", "__bss", data + 0x1000, 0x800, 0, 1));
  commands.push_back(variables);

  commands.push_back(newSegment("__LINKEDIT", text + 0x4000, 0x1000, kLinkEditOffset, 0x1000, 1));
}

void MachOBuilder::addTables() {
  TestCommand dyld{newCommand(0x80000022), {}, {}};
  for (const char* kind : {"rebase", "bind", "weak_bind", "lazy_bind", "export"}) {
    dyld.fields.number(std::string(kind) + "_off", 4, 0).number(std::string(kind) + "_size", 4, 0);
  }
  dyld.fields["rebase_off"] = kRebase;
  dyld.fields["bind_off"] = kBind;
  commands.push_back(dyld);

  TestCommand symtab{newCommand(0x2), {}, {}};
  symtab.fields.number("symoff", 4, kSymbols)
      .number("nsyms", 4, 0)
      .number("stroff", 4, kStrings)
      .number("strsize", 4, 0);
  commands.push_back(symtab);

  TestCommand dysymtab{newCommand(0xb), {}, {}};
  for (const char* field :
       {"ilocalsym", "nlocalsym", "iextdefsym", "nextdefsym", "iundefsym", "nundefsym", "tocoff",
        "ntoc", "modtaboff", "nmodtab", "extrefsymoff", "nextrefsyms", "indirectsymoff",
        "nindirectsyms", "extreloff", "nextrel", "locreloff", "nlocrel"}) {
    dysymtab.fields.number(field, 4, 0);
  }
  dysymtab.fields["nextdefsym"] = 2;
  dysymtab.fields["iundefsym"] = 2;
  dysymtab.fields["nundefsym"] = 1;
  dysymtab.fields["indirectsymoff"] = kIndirect;
  dysymtab.fields["nindirectsyms"] = 2;
  commands.push_back(dysymtab);

  TestCommand dylinker{newCommand(0xe), {}, {}};
  dylinker.fields.number("name", 4, 12);
  dylinker.tail = std::string("/usr/lib/dyld\0\0\0\0\0\0\0", 20);
  commands.push_back(dylinker);

  TestCommand main{newCommand(0x80000028), {}, {}};
  main.fields.number("entryoff", 8, kTextOffset).number("stacksize", 8, 0);
  commands.push_back(main);
  addDylib("/usr/lib/libSystem.B.dylib");

  const std::pair<uint32_t, uint64_t> kLinkEditData[] = {
      {0x26, kFunctionStarts}, {0x29, kDataInCode}, {0x1e, kSplitInfo}, {0x2b, kDrs}};
  for (const auto& [cmd, offset] : kLinkEditData) addLinkEditData(cmd, offset, 16);
  TestCommand encryption{newCommand(arch.is64 ? 0x2c : 0x21), {}, {}};
  encryption.fields.number("cryptoff", 4, 0x1000)
      .number("cryptsize", 4, 0x1000)
      .number("cryptid", 4, 0);
  commands.push_back(encryption);
}

TestRecord& MachOBuilder::command(uint32_t cmd) {
  for (TestCommand& candidate : commands) {
    if (candidate.fields["cmd"] == cmd) return candidate.fields;
  }
  throw std::invalid_argument("no such command");
}

TestCommand& MachOBuilder::segment(std::string_view name) {
  for (TestCommand& candidate : commands) {
    const std::string bytes = candidate.fields.bytes(arch);
    if (candidate.fields["cmd"] != (arch.is64 ? 0x19 : 0x1)) continue;
    if (std::string_view(bytes.c_str() + 8) == name) return candidate;
  }
  throw std::invalid_argument("no such segment");
}

TestRecord& MachOBuilder::section(std::string_view segmentName, size_t index) {
  return segment(segmentName).sections.at(index);
}

MachOBuilder& MachOBuilder::remove(uint32_t cmd) {
  std::erase_if(commands, [cmd](TestCommand& command) { return command.fields["cmd"] == cmd; });
  return *this;
}

MachOBuilder& MachOBuilder::removeSegment(std::string_view name) {
  commands.erase(commands.begin() + (&segment(name) - commands.data()));
  return *this;
}

MachOBuilder& MachOBuilder::add(TestCommand command) {
  commands.push_back(std::move(command));
  return *this;
}

MachOBuilder& MachOBuilder::addDylib(const std::string& name, uint32_t cmd) {
  TestCommand dylib{newCommand(cmd), {}, {}};
  dylib.fields.number("name", 4, 24)
      .number("timestamp", 4, 2)
      .number("current", 4, 0x10000)
      .number("compatibility", 4, 0x10000);
  dylib.tail = name + '\0';
  return add(dylib);
}

MachOBuilder& MachOBuilder::addLinkEditData(uint32_t cmd, uint64_t offset, uint64_t size) {
  TestCommand data{newCommand(cmd), {}, {}};
  data.fields.number("dataoff", 4, offset).number("datasize", 4, size);
  return add(data);
}

MachOBuilder& MachOBuilder::makeModern(uint16_t format) {
  remove(0x80000022);
  rebase.clear();
  bind.clear();
  const uint32_t p = arch.pointerSize();
  fixups = TestFixups{};
  fixups->format = format != 0 ? format : arch.is64 ? 6 : 3;
  fixups->segmentOffset = kDataOffset;
  fixups->maxValidPointer = 0x100000;
  fixups->pages = {0};
  addLinkEditData(0x80000034, kRebase, 0);
  // A trie of one node that exports nothing.
  addLinkEditData(0x80000033, kBind, 8);
  const auto isOneOf = [&](std::initializer_list<int> formats) {
    return std::ranges::find(formats, fixups->format) != formats.end();
  };
  const bool offsets = !isOneOf({1, 2, 3, 10});
  const uint64_t stride = isOneOf({7, 10}) ? 4 : 8;
  const uint64_t first = offsets ? kTextOffset : textAddress() + kTextOffset;
  const auto place = [&](uint64_t target, uint64_t next, bool bound) {
    if (!arch.is64) return chained32(target, next, bound);
    if (isOneOf({2, 6})) return chained64(target, next, bound);
    return chainedArm64e(target, next, bound, false, stride);
  };
  initializers = {place(first, p, false), place(first + 8, p, false), place(0, 0, true)};
  return *this;
}

MachOBuilder& MachOBuilder::addPlain(uint32_t cmd, uint32_t cmdsize) {
  TestCommand plain{newCommand(cmd), {}, {}};
  plain.fields["cmdsize"] = cmdsize;
  plain.keepSize = true;
  if (cmdsize > 8) plain.tail.resize(cmdsize - 8);
  return add(plain);
}

MachOBuilder& MachOBuilder::addThread(uint64_t stackPointer, uint64_t entry) {
  // The places of both registers in the thread states of ppc, x86 and arm.
  uint32_t stackIndex = 3, entryIndex = 0, count = 40;
  if ((arch.cputype & 0xff) == 7) {
    stackIndex = 7;
    entryIndex = arch.is64 ? 16 : 10;
  } else if ((arch.cputype & 0xff) == 12) {
    stackIndex = 13;
    entryIndex = 15;
  }
  TestCommand thread{newCommand(5), {}, {}};
  thread.fields.number("flavor", 4, 1).number("count", 4, count);
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t value = i == stackIndex ? stackPointer : i == entryIndex ? entry : 0;
    thread.tail += stored(arch, value, arch.pointerSize());
  }
  return add(thread);
}

MachOBuilder& MachOBuilder::addSegment(const std::string& name, uint64_t vmaddr, uint64_t vmsize,
                                       uint64_t fileoff, uint64_t filesize, uint32_t protection) {
  return add(newSegment(name, vmaddr, vmsize, fileoff, filesize, protection));
}

MachOBuilder& MachOBuilder::makeLibrary() {
  header["filetype"] = 6;
  return remove(0xe).remove(0x80000028).remove(arch.is64 ? 0x2c : 0x21);
}

MachOBuilder& MachOBuilder::makeStatic() {
  header["flags"] = 0x1;
  return remove(0xe).remove(0xb).remove(0x1e);
}

uint32_t MachOBuilder::relocationInfo(uint32_t symbol, bool pcrel, uint32_t width, bool isExtern,
                                      uint32_t type) const {
  if (arch.bigEndian) {
    return symbol << 8 | (pcrel ? 1U << 7 : 0) | width << 5 | (isExtern ? 1U << 4 : 0) | type;
  }
  return symbol | (pcrel ? 1U << 24 : 0) | width << 25 | (isExtern ? 1U << 27 : 0) | type << 28;
}

void MachOBuilder::fillCounts() {
  for (TestCommand& each : commands) {
    if (each.keepSize) continue;
    TestRecord& fields = each.fields;
    if (fields["cmd"] == 0x2 && fields["nsyms"] == 0) fields["nsyms"] = symbols.size();
    if (fields["cmd"] == 0x80000034 && fixups && fields["datasize"] == 0) {
      fields["datasize"] = fixups->bytes().size();
    }
    if (fields["cmd"] == 0x2 && fields["strsize"] == 0) fields["strsize"] = strings.size();
    if (fields["cmd"] == 0xb && !local.empty()) {
      fields["locreloff"] = kLocal;
      fields["nlocrel"] = local.size();
    }
    if (fields["cmd"] == 0xb && !external.empty()) {
      fields["extreloff"] = kExternal;
      fields["nextrel"] = external.size();
    }
    if (fields["cmd"] == 0x80000022) {
      fields["rebase_size"] = rebase.size();
      fields["bind_size"] = bind.size();
    }
    if (!each.sections.empty() && fields["nsects"] == 0) fields["nsects"] = each.sections.size();
    const uint64_t mask = arch.pointerSize() - 1;
    uint64_t size = fields.bytes(arch).size() + each.tail.size();
    for (TestRecord& part : each.sections) size += part.bytes(arch).size();
    const uint64_t rounded = (size + mask) & ~mask;
    each.tail.resize(each.tail.size() + rounded - size);
    fields["cmdsize"] = rounded;
  }
}

std::string MachOBuilder::buildCommands() {
  fillCounts();
  std::string load;
  for (TestCommand& each : commands) {
    load += each.fields.bytes(arch);
    for (TestRecord& part : each.sections) load += part.bytes(arch);
    load += each.tail;
  }
  header["ncmds"] = ncmds.value_or(static_cast<uint32_t>(commands.size()));
  header["sizeofcmds"] = sizeofcmds.value_or(static_cast<uint32_t>(load.size()));
  commandsEnd_ = headerSize() + load.size();
  return header.bytes(arch) + load;
}

std::string MachOBuilder::build() {
  const std::string start = buildCommands();
  std::string image(length, '\0');
  std::string code;
  for (int i = 0; i < 0x100; ++i) code += static_cast<char>(i);
  patch(&image, kTextOffset, code);
  uint64_t at = kDataOffset;
  for (uint64_t target : initializers) {
    patch(&image, at, stored(arch, target, arch.pointerSize()));
    at += arch.pointerSize();
  }
  patch(&image, kRebase, rebase);
  patch(&image, kBind, bind);
  if (fixups) patch(&image, kRebase, fixups->bytes());
  at = kSymbols;
  for (const TestSymbol& symbol : symbols) {
    patch(&image, at,
          stored(arch, symbol.strx, 4) + stored(arch, symbol.type, 1) +
              stored(arch, symbol.sect, 1) + std::string(2, '\0') +
              stored(arch, textAddress() + kTextOffset, arch.pointerSize()));
    at += arch.is64 ? 16 : 12;
  }
  at = kLocal;
  for (const auto* entries : {&local, &external}) {
    for (const auto& [address, info] : *entries) {
      patch(&image, at, stored(arch, address, 4) + stored(arch, info, 4));
      at += 8;
    }
    at = kExternal;
  }
  patch(&image, kStrings, strings);
  patch(&image, 0, start);
  return image;
}

std::string buildFat(const std::vector<FatMember>& members, uint64_t align) {
  const TestArch order{"", true, false, 0, 0};
  std::string table = stored(order, 0xcafebabe, 4) + stored(order, members.size(), 4);
  std::string file;
  uint32_t power = 0;
  while ((uint64_t{1} << power) < align) ++power;
  for (const FatMember& member : members) {
    const uint64_t end = file.empty() ? 8 + 20 * members.size() : file.size();
    const uint64_t offset = (end + align - 1) & ~(align - 1);
    file.resize(offset);
    file += member.bytes;
    for (uint64_t word : {uint64_t{member.arch.cputype}, uint64_t{member.arch.cpusubtype}, offset,
                          uint64_t{member.bytes.size()}, uint64_t{power}}) {
      table += stored(order, word, 4);
    }
  }
  patch(&file, 0, table);
  return file;
}

}  // namespace tovrek::test
