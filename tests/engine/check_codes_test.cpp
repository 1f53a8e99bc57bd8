// Each numeric failure of the checker, provoked in an image that is valid otherwise.
#include <gtest/gtest.h>

#include <functional>
#include <vector>

#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::checkBytes;
using test::kSixArchs;
using test::MachOBuilder;

struct CodeCase {
  const char* what;
  const char* expected;
  std::function<void(MachOBuilder&)> change;
};

uint32_t encryptionCommand(const MachOBuilder& b) {
  return b.arch.is64 ? 0x2c : 0x21;
}

// Runs each case on all six architectures, or on those that `applies` picks.
void runCases(const std::vector<CodeCase>& cases,
              const std::function<bool(const test::TestArch&)>& applies = {}) {
  for (const test::TestArch& arch : kSixArchs) {
    if (applies && !applies(arch)) continue;
    for (const CodeCase& each : cases) {
      MachOBuilder builder(arch);
      each.change(builder);
      EXPECT_EQ(checkBytes(builder.build()), each.expected) << arch.name << ": " << each.what;
    }
  }
}

TEST(CheckCodes, HeaderAndFile) {
  runCases({
      {"untouched", "ok", [](auto&) {}},
      {"other magic", "1103", [](auto& b) { b.header["magic"] = 0xfeedfacc; }},
      {"object file", "1103", [](auto& b) { b.header["filetype"] = 1; }},
      {"commands beyond the file", "1107", [](auto& b) { b.sizeofcmds = 0x4000; }},
      {"commands beyond all numbers", "1107", [](auto& b) { b.sizeofcmds = 0xfffffff8; }},
      {"flag 0x2", "1108", [](auto& b) { b.header["flags"] |= 0x2; }},
      {"flag 0x40", "1108", [](auto& b) { b.header["flags"] |= 0x40; }},
      {"flag 0x02000000", "1108", [](auto& b) { b.header["flags"] |= 0x02000000; }},
      {"flag 0x01000000", "ok", [](auto& b) { b.header["flags"] |= 0x01000000; }},
      {"no re-exports in a program", "1109", [](auto& b) { b.header["flags"] |= 0x100000; }},
      {"no re-exports in a library", "ok",
       [](auto& b) { b.makeLibrary().header["flags"] |= 0x100000; }},
      {"loader", "1110", [](auto& b) { b.header["filetype"] = 7; }},
      {"bundle", "ok", [](auto& b) { b.makeLibrary().header["filetype"] = 8; }},
  });
}

TEST(CheckCodes, LoadCommands) {
  runCases({
      {"unaligned size", "1112", [](auto& b) { b.addPlain(0x1b, 26); }},
      {"size 0", "1113", [](auto& b) { b.addPlain(0x1b, 0); }},
      {"size beyond the commands", "1113",
       [](auto& b) {
         b.addPlain(0x1b, 24);
         b.commands.back().fields["cmdsize"] = 32;
       }},
      {"size 0 of a command that is none", "1115", [](auto& b) { b.addPlain(0, 0); }},
      {"zeros behind the commands count as commands", "1115",
       [](auto& b) { b.ncmds = 0xffffffff; }},
      {"a command behind the commands, unaligned", "1112",
       [](auto& b) {
         b.build();
         b.sizeofcmds = b.commandsEnd() - b.headerSize();
         b.addPlain(0x1b, 26);
       }},
      {"a command behind the commands", "1113",
       [](auto& b) {
         b.build();
         b.sizeofcmds = b.commandsEnd() - b.headerSize();
         b.addPlain(0x1b, 24);
       }},
      {"a size below the command's own fields", "1113", [](auto& b) { b.addPlain(0x2, 8); }},
      {"the other width's segment", "1115",
       [](auto& b) { b.addPlain(b.arch.is64 ? 0x1 : 0x19, 72); }},
      {"the other width's routines", "1115",
       [](auto& b) { b.addPlain(b.arch.is64 ? 0x11 : 0x1a, 72); }},
      {"own routines", "ok", [](auto& b) { b.addPlain(b.arch.is64 ? 0x1a : 0x11, 72); }},
      {"0x2d", "1115", [](auto& b) { b.addPlain(0x2d, 16); }},
      {"0x2e", "1115", [](auto& b) { b.addPlain(0x2e, 16); }},
      {"0x33", "1115", [](auto& b) { b.addPlain(0x80000033, 16); }},
      {"0x34", "1115", [](auto& b) { b.addPlain(0x80000034, 16); }},
      {"0x18 without the required bit", "1115", [](auto& b) { b.addPlain(0x18, 16); }},
      {"0x2f to 0x32", "ok",
       [](auto& b) {
         b.addPlain(0x2f, 16).addPlain(0x30, 16).addPlain(0x31, 16).addPlain(0x32, 24);
       }},
      {"thread in a library", "1116", [](auto& b) { b.makeLibrary().addThread(0, 0); }},
      {"main in a library", "1117", [](auto& b) { b.header["filetype"] = 6; }},
      {"umbrella without re-exports", "1118",
       [](auto& b) { b.makeLibrary().addPlain(0x13, 16).header["flags"] |= 0x100000; }},
      {"sub-library without re-exports", "1118",
       [](auto& b) { b.makeLibrary().addPlain(0x15, 16).header["flags"] |= 0x100000; }},
      {"sub-framework without re-exports", "ok",
       [](auto& b) { b.makeLibrary().addPlain(0x12, 16).header["flags"] |= 0x100000; }},
  });
}

TEST(CheckCodes, Segments) {
  runCases({
      {"section count", "1119", [](auto& b) { b.segment("__TEXT").fields["nsects"] = 2; }},
      {"section count near 2^32", "1119",
       [](auto& b) { b.segment("__TEXT").fields["nsects"] = 0xcccccccd; }},
      {"overlapping memory", "1120",
       [](auto& b) { b.segment("__LINKEDIT").fields["vmaddr"] = b.dataAddress() + 0x1fff; }},
      {"overlapping file data", "1121",
       [](auto& b) { b.segment("__LINKEDIT").fields["fileoff"] = 0x2fff; }},
      {"file data of an earlier one, memory of a later one", "1121",
       [](auto& b) {
         b.segment("__LINKEDIT").fields["fileoff"] = 0;
         b.segment("__LINKEDIT").fields["vmaddr"] = b.dataAddress();
       }},
      {"beyond the file, and memory of another than the first", "1122",
       [](auto& b) {
         b.segment("__LINKEDIT").fields["filesize"] = 0x1001;
         b.segment("__LINKEDIT").fields["vmaddr"] = b.dataAddress();
       }},
      {"later segment beyond the file", "1122",
       [](auto& b) { b.segment("__LINKEDIT").fields["filesize"] = 0x1001; }},
      {"later segment near the largest number", "1122",
       [](auto& b) {
         b.segment("__LINKEDIT").fields["fileoff"] = b.arch.is64 ? ~uint64_t{0xff} : 0xffffff00;
       }},
      {"first segment starts beyond the file", "1123",
       [](auto& b) { b.segment("__PAGEZERO").fields["fileoff"] = 0x4001; }},
      {"first segment ends beyond the file", "1124",
       [](auto& b) { b.segment("__PAGEZERO").fields["filesize"] = 0x4001; }},
      {"section below its segment", "1125",
       [](auto& b) { b.section("__DATA", 2)["addr"] = b.dataAddress() - 1; }},
      {"section above its segment", "1125",
       [](auto& b) { b.section("__DATA", 2)["size"] = 0x1001; }},
      {"section data outside", "1126", [](auto& b) { b.section("__TEXT", 0)["offset"] = 0x1f01; }},
      {"zero-filled section needs none", "ok",
       [](auto& b) { b.section("__DATA", 2)["flags"] = 0x12; }},
      {"no link edit", "1127", [](auto& b) { b.removeSegment("__LINKEDIT"); }},
      {"no text", "1128", [](auto& b) { b.segment("__TEXT").fields.rename("__CODE"); }},
      {"writable text", "1129", [](auto& b) { b.segment("__TEXT").fields["initprot"] = 7; }},
      {"text not at the start", "1130",
       [](auto& b) {
         b.segment("__TEXT").fields["fileoff"] = 0x800;
         b.segment("__TEXT").fields["filesize"] = 0x1800;
       }},
      {"text smaller than the commands", "1131",
       [](auto& b) {
         b.segment("__TEXT").sections.clear();
         b.segment("__TEXT").fields["filesize"] = 0x200;
       }},
  });
}

TEST(CheckCodes, StackAndEntry) {
  const auto stack = [](MachOBuilder& b, uint64_t pointer, uint64_t size, uint64_t filesize) {
    b.remove(0x80000028).addThread(pointer, b.textAddress() + 0x1000);
    if (size != 0) {
      b.addSegment("__UNIXSTACK", b.textAddress() + 0x10000, size, 0x4000, filesize, 3);
      b.length = 0x5000;
    }
  };
  runCases(
      {{"main outside text", "1136", [](auto& b) { b.command(0x80000028)["entryoff"] = 0x2000; }},
       {"main near 2^64", "1136",
        [](auto& b) { b.command(0x80000028)["entryoff"] = ~uint64_t{0}; }},
       {"task stack with file data", "1134",
        [](auto& b) {
          b.length = 0x5000;
          b.addSegment("__UNIXSTACK", b.textAddress() + 0x10000, 0x1000, 0x4000, 8, 3);
        }},
       {"task stack too small", "1135",
        [](auto& b) { b.addSegment("__UNIXSTACK", b.textAddress() + 0x10000, 0xff8, 0, 0, 3); }},
       {"static flags", "1137", [](auto& b) { b.makeStatic().header["flags"] = 0x5; }},
       {"static", "ok", [](auto& b) { b.makeStatic(); }},
       {"static, movable", "ok", [](auto& b) {
          // Nothing names the places of the initializers' slides in this one.
          b.makeStatic().header["flags"] = 0x200001;
        }}});
  const auto hasThreads = [](const test::TestArch& arch) { return arch.cputype != 0x0100000c; };
  runCases({{"thread", "ok", [&](auto& b) { stack(b, 0, 0, 0); }},
            {"thread entry outside text", "1136",
             [](auto& b) { b.addThread(0, b.textAddress() + 0x2000); }},
            {"stack pointer without a segment", "1132", [&](auto& b) { stack(b, 0x100, 0, 0); }},
            {"stack pointer outside", "1133",
             [&](auto& b) { stack(b, b.textAddress() + 0x11001, 0x1000, 0); }},
            {"stack pointer at the top", "ok",
             [&](auto& b) { stack(b, b.textAddress() + 0x11000, 0x1000, 0); }}},
           hasThreads);
  runCases({{"thread", "1111", [](auto& b) { b.addThread(0, b.textAddress() + 0x1000); }}},
           [&](const test::TestArch& arch) { return !hasThreads(arch); });
}

TEST(CheckCodes, Encryption) {
  runCases({
      {"in a library", "1138",
       [](auto& b) { b.remove(0xe).remove(0x80000028).header["filetype"] = 6; }},
      {"over the commands", "1139",
       [](auto& b) { b.command(encryptionCommand(b))["cryptoff"] = 0; }},
      {"unaligned offset", "1140",
       [](auto& b) { b.command(encryptionCommand(b))["cryptoff"] = 0x1008; }},
      {"unaligned size", "1141",
       [](auto& b) { b.command(encryptionCommand(b))["cryptsize"] = 0x800; }},
      {"across segments", "1142",
       [](auto& b) { b.command(encryptionCommand(b))["cryptsize"] = 0x2000; }},
  });
}

TEST(CheckCodes, LinkEditTables) {
  const auto set = [](uint32_t cmd, const char* field, uint64_t value) {
    return [=](MachOBuilder& b) { b.command(cmd)[field] = value; };
  };
  runCases({
      {"symbols below", "1143", set(0x2, "symoff", 0x2ff8)},
      {"symbols beyond", "1144", set(0x2, "nsyms", (0x4000 - 0x3100) / 8 + 1)},
      {"symbols unaligned", "1145", set(0x2, "symoff", 0x3102)},
      {"strings below", "1146", set(0x2, "stroff", 0x2ff8)},
      {"strings beyond", "1147", set(0x2, "strsize", 0xb08)},
      {"strings unaligned", "1148", set(0x2, "stroff", 0x3502)},
      {"strings of odd size", "1149", set(0x2, "strsize", 30)},
      {"no dynamic symbols before no strings", "1151", [](auto& b) { b.remove(0xb).remove(0x2); }},
      {"no strings", "1150", [](auto& b) { b.remove(0x2); }},
      {"requirements outside", "1152", set(0x2b, "dataoff", 0x3ff8)},
      {"requirements unaligned", "1154", set(0x2b, "dataoff", 0x3902)},
      {"requirements of odd size", "1153", set(0x2b, "datasize", 18)},
      {"data in code outside", "1155", set(0x29, "dataoff", 0x2ff8)},
      {"data in code unaligned", "1156", set(0x29, "dataoff", 0x3702)},
      {"data in code of odd size", "1157", set(0x29, "datasize", 18)},
      {"function starts outside", "1158", set(0x26, "datasize", 0xffffff00)},
      {"function starts unaligned", "1159", set(0x26, "dataoff", 0x3602)},
      {"function starts of odd size", "1160", set(0x26, "datasize", 18)},
      {"split info outside", "1161", set(0x1e, "dataoff", 0)},
      {"split info unaligned", "1162", set(0x1e, "dataoff", 0x3802)},
      {"split info of odd size", "1163", set(0x1e, "datasize", 18)},
      {"split info in a static program", "1164",
       [](auto& b) { b.remove(0xe).remove(0xb).header["flags"] = 1; }},
      {"dynamic symbols in a static program", "1165",
       [](auto& b) { b.remove(0xe).remove(0x1e).header["flags"] = 1; }},
      {"indirect symbols outside", "1166", set(0xb, "indirectsymoff", 0x3ffc)},
      {"indirect symbols unaligned", "1167", set(0xb, "indirectsymoff", 0x3402)},
      {"local relocations outside", "1168", set(0xb, "nlocrel", 1)},
      {"external relocations outside", "1170", set(0xb, "nextrel", 0xffffffff)},
      {"local relocations unaligned", "1169",
       [](auto& b) {
         b.command(0xb)["nlocrel"] = 1;
         b.command(0xb)["locreloff"] = 0x3202;
       }},
      {"external relocations unaligned", "1171",
       [](auto& b) {
         b.command(0xb)["nextrel"] = 1;
         b.command(0xb)["extreloff"] = 0x3302;
       }},
      {"symbol records beyond the file", "1144", set(0xb, "iextdefsym", 0xffffffff)},
  });
}

TEST(CheckCodes, RulesAreTakenByValue) {
  for (const test::TestArch& arch : kSixArchs) {
    MachOBuilder builder(arch);
    builder.command(0x2)["stroff"] = 0x3502;
    builder.command(0x2)["strsize"] = 30;
    builder.header["flags"] |= 0x02000000;
    builder.addPlain(0x80000033, 16);
    static constexpr uint32_t kOnlyNew[] = {
        0x80000033, 0x2, 0xb, 0xe, 0x80000022, 0x80000028, 0xc, 0x26, 0x29, 0x1e, 0x2b, 0x21, 0x2c};
    const std::string bytes = builder.build();
    EXPECT_EQ(checkBytes(bytes), "1108");
    macho::AcceptanceRules rules;
    rules.headerFlags |= 0x02000000;
    EXPECT_EQ(checkBytes(bytes, {.rules = rules}), "1115");
    rules.commands = kOnlyNew;
    EXPECT_EQ(checkBytes(bytes, {.rules = rules}), "1148");
    rules.stringPoolAlignment = 2;
    EXPECT_EQ(checkBytes(bytes, {.rules = rules}), "1149");
    rules.anyTableSize = true;
    EXPECT_EQ(checkBytes(bytes, {.rules = rules}), "ok");
  }
}

}  // namespace
}  // namespace tovrek
