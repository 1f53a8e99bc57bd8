// Makes Mach-O images byte by byte, from the published format and nothing else: it shares no
// declarations with the code under test.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tovrek::test {

struct TestArch {
  const char* name;
  bool bigEndian;
  bool is64;
  uint32_t cputype;
  uint32_t cpusubtype;

  uint32_t pointerSize() const { return is64 ? 8 : 4; }
};

inline constexpr TestArch kPpc{"ppc", true, false, 18, 0};
inline constexpr TestArch kPpc64{"ppc64", true, true, 0x01000012, 0};
inline constexpr TestArch kI386{"i386", false, false, 7, 3};
inline constexpr TestArch kX86_64{"x86_64", false, true, 0x01000007, 3};
inline constexpr TestArch kArmv7{"armv7", false, false, 12, 9};
inline constexpr TestArch kArmv7s{"armv7s", false, false, 12, 11};
inline constexpr TestArch kArm64{"arm64", false, true, 0x0100000c, 0};
inline constexpr std::array kSixArchs = {kPpc, kPpc64, kI386, kX86_64, kArmv7, kArm64};

// An unsigned number of `width` bytes in the architecture's byte order.
std::string stored(const TestArch& arch, uint64_t value, uint32_t width);
void patch(std::string* bytes, uint64_t offset, const std::string& with);

// A record of named fields: builder["symoff"] reads and sets one.
class TestRecord {
 public:
  TestRecord& number(const std::string& name, uint32_t width, uint64_t value);
  TestRecord& name16(const std::string& text);
  uint64_t& operator[](const std::string& field);
  void rename(const std::string& text);  // the first name16
  std::string bytes(const TestArch& arch) const;

 private:
  struct Field {
    std::string name;
    uint32_t width;
    uint64_t value;
    std::string text;
  };
  std::vector<Field> fields_;
};

// "cmd" and "cmdsize" come first; a size of 0 is filled in by the builder unless kept.
struct TestCommand {
  TestRecord fields;
  std::vector<TestRecord> sections;
  std::string tail;
  bool keepSize = false;
};

struct TestSymbol {
  uint32_t strx = 0;
  uint8_t type = 0;
  uint8_t sect = 0;
};

// The table of chained fix-ups: the chains of one segment, which the loader finds by its number.
struct TestFixups {
  uint32_t version = 0;
  uint32_t startsOffset = 32;
  uint32_t segmentCount = 4, segment = 2;
  uint32_t segmentStarts = 24;  // from startsOffset on
  uint16_t pageSize = 0x1000, format = 0;
  uint64_t segmentOffset = 0;
  uint32_t maxValidPointer = 0;
  std::vector<uint16_t> pages;  // where the chain of each starts
  std::vector<uint16_t> lists;  // starts of pages with several chains
  std::optional<uint16_t> pageCount;

  std::string bytes() const;
};
// Places in a chain; `next` is the distance to the next one in bytes.
uint64_t chained64(uint64_t target, uint64_t next, bool bound = false);  // formats 2 and 6
uint64_t chainedArm64e(uint64_t target, uint64_t next, bool bound = false,
                       bool signedPointer = false, uint64_t stride = 8);
uint64_t chained32(uint64_t target, uint64_t next, bool bound = false);

// Starts as a valid executable with all kinds of tables; tests then change what they are about.
// The file has four pages of 4096 bytes: header and commands, code, data, link edit.
class MachOBuilder {
 public:
  explicit MachOBuilder(const TestArch& arch);

  static constexpr uint64_t kPage = 0x1000;
  static constexpr uint64_t kTextOffset = 0x1000, kDataOffset = 0x2000, kLinkEditOffset = 0x3000;
  // Where the tables lie in the file.
  static constexpr uint64_t kRebase = 0x3000, kBind = 0x3080, kSymbols = 0x3100, kLocal = 0x3200,
                            kExternal = 0x3300, kIndirect = 0x3400, kStrings = 0x3500,
                            kFunctionStarts = 0x3600, kDataInCode = 0x3700, kSplitInfo = 0x3800,
                            kDrs = 0x3900;

  TestArch arch;
  TestRecord header;
  std::vector<TestCommand> commands;
  std::vector<TestSymbol> symbols;
  std::string strings;
  std::string rebase, bind;
  std::vector<std::pair<uint32_t, uint32_t>> local, external;  // both words of each entry
  std::vector<uint64_t> initializers;
  std::optional<TestFixups> fixups;
  std::optional<uint32_t> ncmds, sizeofcmds;
  uint64_t length = 0x4000;

  uint64_t textAddress() const { return arch.is64 ? 0x100000000 : 0x1000; }
  uint64_t dataAddress() const { return textAddress() + kDataOffset; }

  // The first command of the kind; fails when there is none.
  TestRecord& command(uint32_t cmd);
  TestCommand& segment(std::string_view name);
  TestRecord& section(std::string_view segmentName, size_t index);
  MachOBuilder& remove(uint32_t cmd);
  MachOBuilder& removeSegment(std::string_view name);
  MachOBuilder& add(TestCommand command);
  MachOBuilder& addDylib(const std::string& name, uint32_t cmd = 12);
  // A command of two words and as many zero bytes as `cmdsize` asks for.
  MachOBuilder& addPlain(uint32_t cmd, uint32_t cmdsize);
  MachOBuilder& addThread(uint64_t stackPointer, uint64_t entry);
  MachOBuilder& addSegment(const std::string& name, uint64_t vmaddr, uint64_t vmsize,
                           uint64_t fileoff, uint64_t filesize, uint32_t protection);
  // Turns the image into a library without what only executables have.
  MachOBuilder& makeLibrary();
  // Puts chained fix-ups and an exports trie into the place of the loader opcodes. The chain holds
  // both initializers (slid) and the first lazy pointer (bound), in the format given or in the
  // plain one of the pointer size.
  MachOBuilder& makeModern(uint16_t format = 0);
  MachOBuilder& addLinkEditData(uint32_t cmd, uint64_t offset, uint64_t size);
  // Takes away what only images with a loader have.
  MachOBuilder& makeStatic();

  // The second word of a relocation entry.
  uint32_t relocationInfo(uint32_t symbol, bool pcrel, uint32_t length, bool isExtern,
                          uint32_t type) const;

  std::string build();
  // The header and the load commands alone, for images that are laid out otherwise.
  std::string buildCommands();
  // End of the commands of the last build.
  uint64_t commandsEnd() const { return commandsEnd_; }
  uint64_t headerSize() const { return arch.is64 ? 32 : 28; }

 private:
  TestRecord newCommand(uint32_t cmd) const;
  TestCommand newSegment(const std::string& name, uint64_t vmaddr, uint64_t vmsize,
                         uint64_t fileoff, uint64_t filesize, uint32_t protection) const;
  TestRecord newSection(const std::string& segmentName, const std::string& name, uint64_t addr,
                        uint64_t size, uint64_t offset, uint32_t flags) const;
  void addSegments();
  void addTables();
  void fillCounts();

  uint64_t commandsEnd_ = 0;
};

// An image as the builder makes it, without a change.
inline std::string soundImage(const TestArch& arch) {
  return MachOBuilder(arch).build();
}

// A universal file of the images, each at a multiple of `align` bytes.
struct FatMember {
  TestArch arch;
  std::string bytes;
};
std::string buildFat(const std::vector<FatMember>& members, uint64_t align = 0x4000);

}  // namespace tovrek::test
