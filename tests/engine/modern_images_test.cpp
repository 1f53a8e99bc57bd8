// What the setting modernImages accepts, and what it refuses like the built-in rules.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "engine/MachORebuilder.h"
#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::kArm64;
using test::kArmv7;
using test::kSixArchs;
using test::MachOBuilder;
using test::TestArch;

std::string modern(const std::string& bytes) {
  return test::checkBytes(bytes, {.rules = macho::kModernRules});
}

struct RuleCase {
  const char* what;
  const char* literal;
  const char* modern;
  std::function<void(MachOBuilder&)> change;
};

void runCases(const std::vector<RuleCase>& cases, const std::vector<TestArch>& archs) {
  for (const TestArch& arch : archs) {
    for (const RuleCase& each : cases) {
      MachOBuilder b(arch);
      each.change(b);
      const std::string bytes = b.build();
      EXPECT_EQ(test::checkBytes(bytes), each.literal) << arch.name << ": " << each.what;
      EXPECT_EQ(modern(bytes), each.modern) << arch.name << ": " << each.what;
    }
  }
}

const std::vector<TestArch> kAll(kSixArchs.begin(), kSixArchs.end());
const std::vector<TestArch> kWide = {test::kPpc64, test::kX86_64, kArm64};

TEST(ModernImages, HeaderFlagsAndCommands) {
  std::vector<RuleCase> cases = {
      {"modern as a whole", "1115", "ok", [](auto& b) { b.makeModern(); }}};
  for (uint32_t bit = 0; bit < 32; ++bit) {
    const uint32_t flag = uint32_t{1} << bit;
    if (flag == 0x100000) continue;  // of libraries only
    const bool published = bit < 29 || bit == 31;
    const bool known = (flag & 0x01ffffbd) != 0;
    cases.push_back({"flag", known ? "ok" : "1108", published ? "ok" : "1108",
                     [flag](auto& b) { b.header["flags"] |= flag; }});
  }
  for (uint32_t cmd : {0x8U, 0x10U, 0x2dU, 0x39U}) {
    cases.push_back({"without a table", "1115", "ok", [=](auto& b) { b.addPlain(cmd, 24); }});
  }
  for (uint32_t cmd : {0x3U, 0x4U, 0x6U, 0x7U, 0x9U, 0xaU, 0x33U, 0x34U, 0x80000035U, 0x3fU}) {
    cases.push_back({"still unknown", "1115", "1115", [=](auto& b) { b.addPlain(cmd, 24); }});
  }
  for (uint32_t cmd : {0x2eU, 0x36U, 0x37U, 0x38U, 0x80000033U, 0x80000034U}) {
    const std::tuple<uint64_t, uint64_t, const char*> kTables[] = {
        {0x3000, 0x13, "ok"},    {0x3000, 0x1000, "ok"},      {0x2ff8, 8, "1115"},
        {0x3ff8, 9, "1115"},     {0x3002, 8, "1115"},         {0, 0, "ok"},
        {0xfffffff8, 8, "1115"}, {0x3000, 0xffffffff, "1115"}};
    for (const auto& [offset, size, outcome] : kTables) {
      // clang 14 captures no structured bindings by themselves.
      cases.push_back({"with a table", "1115", outcome, [cmd, at = offset, length = size](auto& b) {
                         b.addLinkEditData(cmd, at, length);
                         b.section("__DATA", 0)["flags"] = 0;  // no initializers to look for
                       }});
    }
    cases.push_back({"too short", "1115", "1115", [=](auto& b) { b.addPlain(cmd, 8); }});
  }
  runCases(cases, kAll);
}

TEST(ModernImages, LinkEditTables) {
  const auto set = [](uint32_t cmd, const char* field, uint64_t value) {
    return [=](MachOBuilder& b) { b.command(cmd)[field] = value; };
  };
  runCases({{"string pool at 4", "1148", "ok", set(2, "stroff", 0x3504)},
            {"symbols at 4", "1145", "1145", set(2, "symoff", 0x3104)}},
           kWide);
  runCases({{"string pool at 2", "1148", "1148", set(2, "stroff", 0x3502)},
            {"string pool of odd size", "1149", "ok", set(2, "strsize", 31)},
            {"string pool outside", "1147", "1147", set(2, "strsize", 0xb01)},
            {"requirements of odd size", "1153", "ok", set(0x2b, "datasize", 17)},
            {"function starts of odd size", "1160", "ok", set(0x26, "datasize", 17)},
            {"split info of odd size", "1163", "ok", set(0x1e, "datasize", 17)},
            {"data in code is made of records", "1157", "1157", set(0x29, "datasize", 17)},
            {"function starts unaligned", "1159", "1159", set(0x26, "dataoff", 0x3602)},
            {"function starts outside", "1158", "1158", set(0x26, "datasize", 0xa01)}},
           kAll);
  const auto library = [](MachOBuilder& b, uint32_t cryptid) {
    b.remove(0xe).remove(0x80000028).header["filetype"] = 6;
    b.command(b.arch.is64 ? 0x2c : 0x21)["cryptid"] = cryptid;
  };
  runCases({{"idle encryption in a library", "1138", "ok", [&](auto& b) { library(b, 0); }},
            {"an encrypted library", "1138", "1138", [&](auto& b) { library(b, 1); }}},
           kAll);
}

// A chain gone wrong, from the table on or in its places.
struct ChainCase {
  const char* what;
  std::string outcome;
  std::function<void(MachOBuilder&)> change;
};

void runChains(const TestArch& arch, uint16_t format, const std::vector<ChainCase>& cases) {
  for (const ChainCase& each : cases) {
    MachOBuilder b(arch);
    b.makeModern(format);
    each.change(b);
    EXPECT_EQ(modern(b.build()), each.outcome)
        << arch.name << " format " << format << ": " << each.what;
  }
}

TEST(ModernImages, InitializersAreFoundInTheChains) {
  const std::pair<TestArch, std::vector<uint16_t>> kFormats[] = {
      {kArm64, {1, 2, 6, 7, 9, 10, 12}}, {kArmv7, {3}}, {test::kX86_64, {2, 6}}};
  for (const auto& [arch, formats] : kFormats) {
    const uint32_t p = arch.pointerSize();
    const uint64_t data = MachOBuilder(arch).dataAddress();
    // Adding to a stored place moves its target; all formats keep it in the lowest bits.
    const std::string outside = fmt::format("initializer 0x{:08X} points outside __TEXT segment",
                                            MachOBuilder(arch).textAddress() + 0x2008);
    const std::string second = fmt::format("initializer at 0x{:X}", data + p);
    for (uint16_t format : formats) {
      runChains(arch, format,
                {{"untouched", "ok", [](auto&) {}},
                 {"in a library", "ok", [](auto& b) { b.makeLibrary(); }},
                 {"target outside", outside, [](auto& b) { b.initializers[1] += 0x1000; }},
                 {"bound", second + " has binding to external symbol",
                  [&](auto& b) { b.initializers[1] = b.initializers[2]; }},
                 {"chain starts behind", fmt::format("initializer at 0x{:X} is not rebased", data),
                  [&](auto& b) {
                    b.fixups->pages = {static_cast<uint16_t>(p)};
                    b.initializers[0] = b.textAddress() + 0x1000;
                  }},
                 {"no chain in the page", fmt::format("initializer at 0x{:X} is not rebased", data),
                  [&](auto& b) {
                    b.fixups->pages = {0xffff};
                    b.initializers = {b.textAddress() + 0x1000, b.textAddress() + 0x1000};
                  }},
                 {"no slides asked for", "ok", [&](auto& b) {
                    b.header["flags"] &= ~uint64_t{0x200000};
                    b.fixups->pages = {0xffff};
                    b.initializers = {b.textAddress() + 0x1000, b.textAddress() + 0x1000};
                  }}});
    }
  }
  // A signed pointer counts from the header in every format; a tag is part of the address.
  for (const uint16_t format : std::initializer_list<uint16_t>{1, 9, 12}) {
    runChains(kArm64, format,
              {{"signed", "ok",
                [](auto& b) { b.initializers[0] = test::chainedArm64e(0x1000, 8, false, true); }},
               {"tagged", "initializer 0x100000100001008 points outside __TEXT segment",
                [](auto& b) { b.initializers[1] |= uint64_t{1} << 43; }}});
  }
}

TEST(ModernImages, ChainsThatLeadAstray) {
  for (const TestArch& arch : {kArm64, kArmv7, test::kX86_64}) {
    const auto garbage = [](auto& b) { b.initializers = {1, 2, 3}; };
    runChains(
        arch, 0,
        {{"start beyond the page", "1115", [](auto& b) { b.fixups->pages = {0x1000}; }},
         {"link beyond the page", "1115",
          [](auto& b) { b.fixups->pageSize = static_cast<uint16_t>(b.arch.pointerSize()); }},
         {"no page size", "1115", [](auto& b) { b.fixups->pageSize = 0; }},
         {"place beyond the file's part of the segment", "1115",
          [](auto& b) {
            b.fixups->pages = {0, 0};
          }},
         {"place below the segment", "1115", [](auto& b) { b.fixups->segmentOffset = 0x1000; }},
         {"place near 2^64", "1115", [](auto& b) { b.fixups->segmentOffset = ~uint64_t{0}; }},
         {"a segment that does not exist", "1115", [](auto& b) { b.fixups->segmentCount = 5; }},
         {"a segment without data", "1115", [](auto& b) { b.fixups->segment = 0; }},
         {"more pages than the table has", "1115",
          [](auto& b) {
            b.fixups->pageCount = 0xffff;
            b.command(0x80000034)["datasize"] = b.fixups->bytes().size();
          }},
         {"starts outside the table", "1115", [](auto& b) { b.fixups->startsOffset = 0xfffffff0; }},
         {"segment's starts outside the table", "1115",
          [](auto& b) { b.fixups->segmentStarts = 0xfffffff0; }},
         {"an empty table", "1115",
          [](auto& b) {
            b.fixups.reset();
            b.command(0x80000034)["dataoff"] = 0;
          }},
         {"a format that is not known", "ok",
          [&](auto& b) {
            garbage(b);
            b.fixups->format = 4;
          }},
         {"a version that is not known", "ok",
          [&](auto& b) {
            garbage(b);
            b.fixups->version = 1;
          }},
         {"what is said of the section itself holds without chains",
          "__mod_init_func section size is not pointer size aligned", [&](auto& b) {
            b.fixups->version = 1;
            b.section("__DATA", 0)["addr"] += 1;
          }}});
  }
  // Only 32-bit formats have several chains in a page, and numbers in their midst.
  runChains(kArmv7, 3,
            {{"two chains", "ok",
              [](auto& b) {
                b.fixups->pages = {0x8001};
                b.fixups->lists = {0, 0x8000 | 4};
                b.initializers[0] &= 0x3ffffff;
              }},
             {"a list without an end", "1115",
              [](auto& b) {
                b.fixups->pages = {0x8001};
                b.fixups->lists = std::vector<uint16_t>(8, 0);
                b.command(0x80000034)["datasize"] = b.fixups->bytes().size();
              }},
             {"a number", "initializer 0x04002000 points outside __TEXT segment",
              [](auto& b) { b.fixups->maxValidPointer = 0x1fff; }}});
  runChains(kArm64, 6, {{"several chains", "1115", [](auto& b) { b.fixups->pages = {0x8001}; }}});
}

TEST(ModernImages, TheLogNamesTheSetting) {
  const test::TemporaryFolder folder;
  bool named = true;
  const auto run = [&](const MachOBuilder& changed, bool on) {
    MachOBuilder b = changed;
    const std::string path = folder.write("App", b.build());
    const std::string log = folder.write("run.log", "");
    WrapperLogger logger("Test", log);
    logger.setLogFileWriteLevel(3);
    Settings settings;
    settings.modernImages = on;
    settings.namesModernImages = named;
    ErrorText error;
    testing::internal::CaptureStderr();
    const bool done = MachORebuilder(settings).initForLibraryType(false, path, logger, &error);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(done, !error.isSet());
    const std::string text = test::contentsOf(log);
    const size_t at = text.find("modernImages");
    return error.text().substr(0, 30) + "|" +
           (at == std::string::npos ? "" : text.substr(at, text.find('\n', at) - at));
  };
  const std::string path = folder.file("App");
  MachOBuilder b(kArm64);
  EXPECT_EQ(run(b, true), "|");
  b.makeModern();
  EXPECT_EQ(run(b, true),
            "|modernImages accepts " + path + ", which the built-in rules refuse: code 1115");
  EXPECT_EQ(run(b, false), "ERROR:  Unknown loader command|modernImages would accept " + path +
                               ", which the built-in rules refuse: code 1115");
  named = false;
  EXPECT_EQ(run(b, false), "ERROR:  Unknown loader command|") << "nobody asked for the setting";
  b.addDylib("@rpath/Wex.framework/Wex").addDylib("@rpath/Wex.framework/Wex");
  EXPECT_EQ(run(b, true), "ERROR:   application contains |")
      << "refused by both, for another reason";
  EXPECT_EQ(run(b, false), "ERROR:  Unknown loader command|");
}

}  // namespace
}  // namespace tovrek
