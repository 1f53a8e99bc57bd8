// Failures of the checker that are given in words, and the relocation codes beside them.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::checkBytes;
using test::kSixArchs;
using test::MachOBuilder;
using test::TestArch;

using Change = std::function<void(MachOBuilder&)>;

std::string after(const TestArch& arch, const Change& change) {
  MachOBuilder builder(arch);
  change(builder);
  return checkBytes(builder.build());
}

TEST(CheckTexts, IndirectSymbols) {
  for (const TestArch& arch : kSixArchs) {
    const uint64_t p = arch.pointerSize();
    EXPECT_EQ(after(arch, [&](auto& b) { b.section("__DATA", 1)["size"] = 2 * p + 1; }),
              "__la_symbol_ptr section size is not an even multiple of element size");
    EXPECT_EQ(after(arch, [&](auto& b) { b.section("__DATA", 1)["reserved1"] = 1; }),
              "__la_symbol_ptr section references beyond end of indirect symbol table (3 > 2)");
    EXPECT_EQ(after(arch,
                    [&](auto& b) {
                      b.section("__TEXT", 0)["flags"] = 8;
                      b.section("__TEXT", 0)["reserved2"] = 12;
                    }),
              "__text section size is not an even multiple of element size");
    EXPECT_EQ(after(arch, [&](auto& b) { b.section("__TEXT", 0)["flags"] = 8; }), "ok")
        << "stubs of size 0 are nobody's";
  }
}

TEST(CheckTexts, Symbols) {
  for (const TestArch& arch : kSixArchs) {
    EXPECT_EQ(after(arch, [](auto& b) { b.symbols[0].strx = 32; }), "string index out of range");
    EXPECT_EQ(after(arch, [](auto& b) { b.symbols[2].strx = 0xffffffff; }),
              "string index out of range");
    EXPECT_EQ(after(arch, [](auto& b) { b.symbols[1].strx = 1; }),
              "duplicate external symbol: _main");
    EXPECT_EQ(after(arch, [](auto& b) { b.symbols[1].type = 0x0e; }),
              "non-external symbol in external symbol range: _helper");
    EXPECT_EQ(after(arch, [](auto& b) { b.symbols[2].strx = 7; }),
              "undefine with same name as external symbol: _helper");
    EXPECT_EQ(after(arch, [](auto& b) { b.symbols[0].sect = 5; }),
              "symbol '_main' has n_sect=5 which is too large");
    EXPECT_EQ(after(arch,
                    [](auto& b) {
                      b.symbols.push_back({1, 0x66, 200});
                    }),
              "ok")
        << "debugger symbols use the field for other numbers";
    // Another string of the same letters is the same name, one of the same hash is not:
    // "ab" and "b]" (5a + b in both).
    EXPECT_EQ(after(arch,
                    [](auto& b) {
                      b.strings = std::string("\0_main\0_main\0_x\0", 16);
                      b.symbols[2].strx = 13;
                    }),
              "duplicate external symbol: _main");
    EXPECT_EQ(after(arch,
                    [](auto& b) {
                      b.strings = std::string("\0ab\0\0\0\0b]\0_x\0\0\0\0", 16);
                      b.symbols[2].strx = 10;
                    }),
              "ok");
  }
}

TEST(CheckTexts, InitializersAndTerminators) {
  for (const TestArch& arch : kSixArchs) {
    const uint64_t p = arch.pointerSize();
    const MachOBuilder plain(arch);
    const uint64_t data = plain.dataAddress();
    EXPECT_EQ(after(arch, [&](auto& b) { b.section("__DATA", 0)["size"] = p + 1; }),
              "__mod_init_func section size is not an even multiple of element size");
    EXPECT_EQ(after(arch, [&](auto& b) { b.section("__DATA", 0)["addr"] += 1; }),
              "__mod_init_func section size is not pointer size aligned");
    EXPECT_EQ(after(arch, [&](auto& b) { b.initializers[1] = b.textAddress() + 0x2000; }),
              fmt::format("initializer 0x{:08X} points outside __TEXT segment",
                          plain.textAddress() + 0x2000));
    EXPECT_EQ(after(arch,
                    [&](auto& b) {
                      b.section("__DATA", 0)["flags"] = 10;
                      b.initializers[0] = 0x10;
                    }),
              "terminator 0x00000010 points outside __TEXT segment");
    EXPECT_EQ(after(arch, [&](auto& b) { b.rebase = std::string("\x11\x22\x00\x51\x00", 5); }),
              fmt::format("initializer at 0x{:X} is not rebased", data + p));
    EXPECT_EQ(after(arch, [&](auto& b) { b.bind = std::string("\x72\x00\xb0\x90\x00", 5); }),
              fmt::format("initializer at 0x{:X} has binding to external symbol", data));
    EXPECT_EQ(after(arch,
                    [&](auto& b) {
                      b.rebase.clear();
                      b.header["flags"] = 0x85;
                    }),
              "ok")
        << "an image that is not moved needs no slides";
    // In a segment without file data the list has no contents.
    EXPECT_EQ(after(arch,
                    [&](auto& b) {
                      b.addSegment("__EMPTY", b.textAddress() + 0x10000, 0x1000000, 0, 0, 3);
                      b.commands.back().sections.push_back(b.section("__DATA", 0));
                      auto& list = b.commands.back().sections[0];
                      list["addr"] = b.textAddress() + 0x10000;
                      list["size"] = 0x1000000;
                      list["offset"] = 0x3ffc;
                    })
                  .substr(0, 4),
              arch.is64 ? "1126" : "init")
        << arch.name;
  }
}

TEST(CheckTexts, LoaderOpcodes) {
  struct OpcodeCase {
    std::string rebase, expected;
  };
  using namespace std::string_literals;
  const OpcodeCase cases[] = {
      // One place at a time, by each opcode that names places.
      {"\x11\x22\x00\x70\x00\x51\x00"s, "ok"},
      {"\x11\x22\x00\x60\x04\x00"s, "ok"},
      {"\x11\x22\x00\x80\x04\x00\x00"s, "ok"},
      {"\x11\x21\x80\x20\x30\x80\x60\x54\x00"s, "not rebased"},  // the segment's end and on
      {"\x11\x25\x00\x54\x00"s, "1172"},
      {"\x11\x2f\x00\x54\x00"s, "1172"},
      {"\x11\x22\x80"s, "malformed uleb128 extends beyond trie"},
      {"\x11\x22\xff\xff\xff\xff\xff\xff\xff\xff\xff\x7f"s, "uleb128 too big for 64-bits"},
      {"\x90"s, "bad rebase opcode 0x90"},
      {"\x11\x22\x00\x60\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01"s,
       "loader opcodes name more places than the image holds"},
  };
  for (const TestArch& arch : kSixArchs) {
    for (const OpcodeCase& each : cases) {
      const std::string outcome = after(arch, [&](auto& b) { b.rebase = each.rebase; });
      EXPECT_NE(outcome.find(each.expected), std::string::npos) << arch.name << ": " << outcome;
    }
    EXPECT_EQ(after(arch, [](auto& b) { b.bind = "\x7f"; }), "1172");
    EXPECT_EQ(after(arch, [](auto& b) { b.bind = "\xd0"; }), "bad bind opcode 0xD0");
  }
}

struct RelocationCase {
  const char* what;
  bool isLocal;
  uint32_t symbol;
  bool pcrel;
  int lengthChange;
  bool isExtern;
  uint32_t type;
  bool inText;
  const char* expected;
};

// Where relocation addresses count from in the builder's image.
uint64_t relocationBase(const MachOBuilder& b) {
  const bool fromData = b.arch.cputype == 0x01000007 || b.arch.cputype == 0x01000012;
  return fromData ? b.dataAddress() : 0;  // else from the first segment, which starts at 0
}

TEST(CheckTexts, RelocationEntries) {
  const RelocationCase cases[] = {
      {"external", false, 2, false, 0, true, 0, false, "ok"},
      {"external length", false, 2, true, -1, false, 1, true, "bad external relocation length"},
      {"external type", false, 2, true, 0, false, 1, true, "unknown external relocation type"},
      {"external pc_rel", false, 2, true, 0, false, 0, true, "bad external relocation pc_rel"},
      {"external not extern", false, 2, false, 0, false, 0, true,
       "local relocation found with external relocations"},
      {"external in text", false, 2, false, 0, true, 0, true,
       "external relocation address not in writable segment"},
      {"local", true, 1, false, 0, false, 0, false, "ok"},
      {"local length", true, 1, true, -1, true, 1, true, "1177"},
      {"local type", true, 1, true, 0, true, 1, true, "1178"},
      {"local pc_rel", true, 1, true, 0, true, 0, true, "1180"},
      {"local extern", true, 1, false, 0, true, 0, true, "1181"},
      {"local in text", true, 1, false, 0, false, 0, true, "1175"},
  };
  for (const TestArch& arch : kSixArchs) {
    for (const RelocationCase& each : cases) {
      MachOBuilder b(arch);
      const uint64_t target = each.inText ? b.textAddress() + 0x1010 : b.dataAddress() + 0x100;
      const uint32_t length = (arch.is64 ? 3 : 2) + each.lengthChange;
      auto& table = each.isLocal ? b.local : b.external;
      table.push_back(
          {static_cast<uint32_t>(target - relocationBase(b)),
           b.relocationInfo(each.symbol, each.pcrel, length, each.isExtern, each.type)});
      // 64-bit addresses count from the data: code lies where no entry can reach it, below.
      std::string expected = each.expected;
      if (arch.cputype == 7 && expected == "1175") expected = "ok";
      if (arch.cputype == 0x0100000c) expected = each.isLocal ? "1174" : "1182";
      EXPECT_EQ(checkBytes(b.build()), expected) << arch.name << ": " << each.what;
    }
  }
}

TEST(CheckTexts, ScatteredAndGroupedRelocations) {
  for (const TestArch& arch : kSixArchs) {
    if (arch.cputype == 0x0100000c) continue;
    MachOBuilder b(arch);
    const auto base = static_cast<uint32_t>(b.dataAddress() - relocationBase(b));
    for (uint32_t symbol : {2, 2, 1, 2}) {
      b.external.push_back(
          {base + 0x100, b.relocationInfo(symbol, false, arch.is64 ? 3 : 2, true, 0)});
    }
    EXPECT_EQ(checkBytes(b.build()), "1173") << arch.name;
    b.external.pop_back();
    EXPECT_EQ(checkBytes(b.build()), "ok") << arch.name;
    if (arch.is64) continue;
    const uint32_t type = arch.cputype == 18 ? 9 : arch.cputype == 7 ? 3 : 4;
    const auto scattered = [&](uint32_t length, uint32_t ofType) {
      return after(arch, [&](auto& image) {
        image.local.push_back({0x80000000U | length << 28 | ofType << 24 | 0x3100, 0});
      });
    };
    EXPECT_EQ(scattered(2, type), "ok");
    EXPECT_EQ(scattered(1, type), "1176");
    EXPECT_EQ(scattered(2, 0), "1179");
  }
}

TEST(CheckTexts, SectionsThatClaimRelocations) {
  const char kText[] = "section __text has attribute set that it has relocs, but it has none";
  for (const TestArch& arch : kSixArchs) {
    const auto claim = [](MachOBuilder& b) { b.section("__TEXT", 0)["flags"] |= 0x100; };
    EXPECT_EQ(after(arch, claim), kText) << arch.name;
    EXPECT_EQ(after(arch, [](auto& b) { b.section("__DATA", 0)["flags"] |= 0x100; }), "ok");
  }
  MachOBuilder b(test::kI386);
  b.section("__TEXT", 0)["flags"] |= 0x100;
  const uint32_t info = b.relocationInfo(1, false, 2, false, 0);
  b.local = {{0x1fff, info}, {0x2100, info}};  // just outside both ends of [0x2000, 0x2100)
  EXPECT_EQ(checkBytes(b.build()), kText);
  b.local.push_back({0x20ff, info});
  EXPECT_EQ(checkBytes(b.build()), "ok");
}

TEST(CheckTexts, LibraryOrder) {
  const std::string intune = "@rpath/IntuneMAM.framework/IntuneMAM";
  const std::string wrapper = "@executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib";
  const std::string sdk = "@rpath/Wex.framework/Wex";
  struct OrderCase {
    std::vector<std::string> dylibs;
    bool sdkOrder, libraryType;
    const char* expected;
  };
  const OrderCase cases[] = {
      {{wrapper}, false, false, "ok"},
      {{wrapper, wrapper}, false, false, "1183"},
      {{sdk, sdk}, false, false, "1187"},
      {{sdk, wrapper}, false, false, "1183"},
      {{wrapper, sdk}, false, false, "1187"},
      {{wrapper, intune}, false, false, "1185"},
      {{intune, wrapper}, false, true, "ok"},
      {{intune, intune}, false, true, "ok"},
      {{sdk, intune}, true, false, "ok"},
      {{intune, intune}, true, false, "1184"},
      {{intune, wrapper}, true, true, "1185"},
      {{intune, sdk}, true, false, "1186"},
      {{"/usr/lib/" + wrapper, "/System/Library/" + intune, wrapper}, false, false, "ok"},
      {{"@rpath/WEX.framework/Wex", sdk}, true, false, "ok"},
      {{"x" + intune + "-" + wrapper}, true, false, "ok"},
  };
  const uint32_t kinds[] = {12, 0x80000018, 0x8000001f, 32, 0x80000023};
  for (const TestArch& arch : kSixArchs) {
    size_t kind = 0;
    for (const OrderCase& each : cases) {
      MachOBuilder b(arch);
      for (const std::string& name : each.dylibs) b.addDylib(name, kinds[kind++ % 5]);
      EXPECT_EQ(checkBytes(b.build(), {each.sdkOrder, each.libraryType, {}}), each.expected)
          << arch.name << ": " << each.dylibs.front();
    }
    MachOBuilder library(arch);
    library.makeLibrary().addDylib(intune).addDylib(wrapper).addDylib(wrapper);
    EXPECT_EQ(checkBytes(library.build()), "ok") << "only programs are judged";
    MachOBuilder named(arch);
    named.addDylib(wrapper, 13).addDylib(wrapper);
    EXPECT_EQ(checkBytes(named.build()), "ok") << "a library's own name loads nothing";
  }
}

}  // namespace
}  // namespace tovrek
