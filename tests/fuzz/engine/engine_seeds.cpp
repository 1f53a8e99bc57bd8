#include <functional>

#include "tests/fuzz/engine/engine_fuzzing.h"
#include "tests/support/MachOBuilder.h"

namespace tovrek::test {
namespace {

struct Variant {
  const char* name;
  std::function<void(MachOBuilder&)> change;
};

// Each reaches code that the plain image does not.
const std::vector<Variant>& variants() {
  static const std::vector<Variant> kVariants = {
      {"plain", [](auto&) {}},
      {"library", [](auto& b) { b.makeLibrary().addDylib("@rpath/Own.dylib", 13); }},
      {"static", [](auto& b) { b.makeStatic(); }},
      {"thread",
       [](auto& b) {
         b.addThread(b.textAddress() + 0x10800, b.textAddress() + 0x1000);
         b.addSegment("__UNIXSTACK", b.textAddress() + 0x10000, 0x1000, 0, 0, 3);
       }},
      {"relocations",
       [](auto& b) {
         const uint32_t width = b.arch.is64 ? 3 : 2;
         b.local.push_back({0x2000, b.relocationInfo(1, false, width, false, 0)});
         if (!b.arch.is64) b.local.push_back({0xa0002000, 0x2000});
         b.external.push_back({0x2010, b.relocationInfo(2, false, width, true, 0)});
         b.external.push_back({0x2018, b.relocationInfo(1, false, width, true, 0)});
         b.section("__TEXT", 0)["flags"] |= 0x100;
       }},
      {"stubs",
       [](auto& b) {
         b.section("__TEXT", 0)["flags"] = 8;
         b.section("__TEXT", 0)["reserved2"] = 0x80;
         b.section("__DATA", 1)["flags"] = 6;
       }},
      {"terminators", [](auto& b) { b.section("__DATA", 0)["flags"] = 10; }},
      {"opcodes",
       [](auto& b) {
         b.rebase = std::string("\x11\x22\x00\x30\x00\x40\x51\x60\x01\x70\x00\x80\x02\x00\x00", 15);
         b.bind = std::string(
             "\x11\x20\x01\x30\x40_printf\0\x51\x60\x7f\x72\x20\x80\x00\x90\xa0\x00\xb1\xc0\x02\x00"
             "\x00",
             27);
       }},
      {"modern", [](auto& b) { b.makeModern(); }},
      {"modern-vmaddr", [](auto& b) { b.makeModern(b.arch.is64 ? 2 : 3).makeLibrary(); }},
      {"modern-arm64e", [](auto& b) { b.makeModern(b.arch.is64 ? 12 : 3); }},
      {"modern-lists",
       [](auto& b) {
         b.makeModern();
         b.fixups->pages = {0x8001};
         b.fixups->lists = {0, 0x8004};
         b.addLinkEditData(0x36, 0x3a00, 7);
       }},
      {"intune",
       [](auto& b) {
         b.addDylib("@rpath/Wex.framework/Wex", 0x80000018)
             .addDylib("@rpath/IntuneMAM.framework/IntuneMAM");
       }},
      {"bare",
       [](auto& b) {
         for (uint32_t cmd : {0x26U, 0x29U, 0x1eU, 0x2bU, 0x21U, 0x2cU, 0x80000022U}) b.remove(cmd);
       }},
      {"encrypted-close",
       [](auto& b) {
         b.section("__TEXT", 0)["offset"] = 0x1800;
         b.build();
         b.addPlain(0x1b, static_cast<uint32_t>((0x1000 - b.commandsEnd()) & ~uint64_t{7}) - 16);
       }},
  };
  return kVariants;
}

}  // namespace

std::vector<FuzzSeed> imageSeeds() {
  std::vector<FuzzSeed> seeds;
  for (const TestArch& arch : kSixArchs) {
    for (const Variant& variant : variants()) {
      MachOBuilder builder(arch);
      variant.change(builder);
      seeds.push_back({std::string(arch.name) + "-" + variant.name, builder.build()});
    }
  }
  return seeds;
}

std::vector<FuzzSeed> fatSeeds() {
  const std::string arm64 = MachOBuilder(kArm64).build(), armv7 = MachOBuilder(kArmv7).build();
  const TestArch unknown{"unknown", false, true, 0x0200000c, 0};
  const std::string overlapping = [&] {
    std::string file = buildFat({{kArmv7, armv7}, {kArm64, arm64}});
    patch(&file, 8 + 20 + 8, file.substr(8 + 8, 4));
    return file;
  }();
  std::string many = buildFat({{kArm64, arm64}});
  patch(&many, 4, "\xff\xff\xff\xff");
  return {
      {"thin", arm64},
      {"one", buildFat({{kArm64, arm64}})},
      {"two", buildFat({{kArmv7, armv7}, {kArm64, arm64}}, 0x1000)},
      {"unknown-between", buildFat({{kArmv7, armv7}, {unknown, "none"}, {kArm64, arm64}}, 0x10)},
      {"overlapping", overlapping},
      {"many", many},
      {"empty", buildFat({})},
      {"cut", buildFat({{kArm64, arm64}}).substr(0, 20)},
  };
}

}  // namespace tovrek::test
