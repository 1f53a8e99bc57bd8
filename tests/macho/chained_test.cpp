// Chained fix-ups: single pointers, the tables, and the walk along the chains.
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

#include "macho/ChainedPointer.h"
#include "macho/ChainedTables.h"
#include "macho/chain_walk.h"
#include "tests/support/MachOBuilder.h"

namespace tovrek::macho {
namespace {

// Pointers of 4 bytes, after the published bit layouts.
TEST(ChainedPointer, Of32Bits) {
  const auto rebase = decodeChainedPointer(DYLD_CHAINED_PTR_32, 0x0c001234);
  ASSERT_TRUE(rebase);
  EXPECT_FALSE(rebase->isBind);
  EXPECT_EQ(rebase->target, 0x1234u);
  EXPECT_EQ(rebase->next, 12u);
  const auto bind = decodeChainedPointer(DYLD_CHAINED_PTR_32, 0x80300005);
  ASSERT_TRUE(bind);
  EXPECT_TRUE(bind->isBind);
  EXPECT_EQ(bind->ordinal, 5u);
  EXPECT_EQ(bind->addend, 3);
  EXPECT_EQ(bind->next, 0u);
  const auto negative =
      decodeChainedPointer(DYLD_CHAINED_PTR_ARM64E_USERLAND24, 0x4007ffff00000102);
  ASSERT_TRUE(negative);
  EXPECT_EQ(negative->addend, -1);
  EXPECT_EQ(negative->ordinal, 0x102u);
  EXPECT_FALSE(decodeChainedPointer(99, 1));
  EXPECT_EQ(chainedPointerSize(DYLD_CHAINED_PTR_32_CACHE), 4u);
  EXPECT_EQ(chainedPointerSize(99), 0u);
}

// Two imports of each form, "_a" and "_long".
template <class Order>
std::string tables(uint32_t importsFormat, uint32_t symbolsFormat = 0) {
  constexpr bool kBig = std::is_same_v<Order, BigEndian>;
  const test::TestArch arch{"", kBig, false, 0, 0};
  const uint32_t size = importsFormat == 3 ? 16 : importsFormat == 2 ? 8 : 4;
  std::string bytes;
  for (const uint32_t word : {0u, 28u, 36u, 36 + 2 * size, 2u, importsFormat, symbolsFormat}) {
    bytes += test::stored(arch, word, 4);
  }
  bytes += test::stored(arch, 1, 4) + test::stored(arch, 0, 4);  // one segment, without chains
  for (const uint32_t name : {1u, 4u}) {
    if (importsFormat == 3) {
      bytes += test::stored(arch, 1, 4) + test::stored(arch, name, 4) + test::stored(arch, 0, 8);
    } else {
      // Library 1, then the name; the two byte orders fill the bits from opposite ends.
      bytes += test::stored(arch, kBig ? 0x01000000 | name : name << 9 | 1, 4);
      bytes.append(size - 4, '\0');
    }
  }
  return bytes + std::string("\0_a\0_long\0", 10);
}

template <class Order>
void expectNames() {
  for (const uint32_t format : {1u, 2u, 3u}) {
    const std::string bytes = tables<Order>(format);
    const ChainedTables<Order> read(viewOf(bytes));
    EXPECT_EQ(read.importName(0), "_a") << format;
    EXPECT_EQ(read.importName(1), "_long") << format;
    EXPECT_EQ(read.importName(2), "") << format;
    ASSERT_EQ(read.segmentCount(), 1u);
    EXPECT_FALSE(read.segment(0)->any);
    EXPECT_FALSE(read.segment(100));
    const ChainedTables<Order> cut(viewOf(bytes).sub(0, 38));
    EXPECT_EQ(cut.importName(0), "") << format;
  }
  const std::string unknown = tables<Order>(4), compressed = tables<Order>(1, 1);
  EXPECT_EQ(ChainedTables<Order>(viewOf(unknown)).importName(0), "");
  EXPECT_EQ(ChainedTables<Order>(viewOf(compressed)).importName(0), "");
}

TEST(ChainedTables, NamesOfImports) {
  expectNames<LittleEndian>();
  expectNames<BigEndian>();
}

TEST(ChainedTables, AreReadAsFarAsTheyGo) {
  const std::string bytes = tables<LittleEndian>(1);
  const struct {
    uint64_t size;
    bool header, segments, first;
  } cases[] = {{27, false, false, false},
               {28, true, false, false},
               {32, true, true, false},
               {36, true, true, true}};
  for (const auto& each : cases) {
    const ChainedTables<LittleEndian> read(viewOf(bytes).sub(0, each.size));
    EXPECT_EQ(read.hasHeader(), each.header) << each.size;
    EXPECT_EQ(read.hasSegments(), each.segments) << each.size;
    EXPECT_EQ(read.segment(0).has_value(), each.first) << each.size;
  }
}

// An image of one segment at 0x1000 with these pointers in its first page.
struct Chain {
  test::TestFixups fixups;
  std::vector<uint64_t> pointers;

  explicit Chain(std::vector<uint64_t> places) : pointers(std::move(places)) {
    fixups.segmentCount = 1;
    fixups.segment = 0;
    fixups.format = DYLD_CHAINED_PTR_64_OFFSET;
    fixups.pages = {0};
  }

  // "address>target" of each place that is slid, "address!" of each that is bound.
  std::string walk(ChainWalk* result) const {
    std::string image;
    for (const uint64_t pointer : pointers) image += test::stored(test::kArm64, pointer, 8);
    const std::string table = fixups.bytes();
    const ChainedSegment segment{0x1000, 0, image.size()};
    std::string sites;
    *result = walkChains(
        viewOf(image), viewOf(table), {&segment, 1}, 0x1000, [&sites](const ChainedSite& site) {
          sites += site.bound ? fmt::format("{:x}! ", site.address)
                              : fmt::format("{:x}>{:x} ", site.address, site.target);
        });
    return sites;
  }
};

TEST(ChainWalk, VisitsUpToWhatIsWrong) {
  using test::chained64;
  const Chain sound({chained64(0x10, 16), 0, chained64(0, 8, true), chained64(0x20, 0)});
  const struct {
    const char* what;
    std::function<void(Chain&)> change;
    ChainWalk result;
    std::string sites;
  } cases[] = {
      {"sound", [](Chain&) {}, ChainWalk::kDone, "1000>1010 1010! 1018>1020 "},
      {"addresses", [](Chain& c) { c.fixups.format = DYLD_CHAINED_PTR_64; }, ChainWalk::kDone,
       "1000>10 1010! 1018>20 "},
      {"out of the segment", [](Chain& c) { c.pointers[3] = chained64(0x20, 8); },
       ChainWalk::kDamaged, "1000>1010 1010! 1018>1020 "},
      {"out of the page", [](Chain& c) { c.fixups.pageSize = 0x18; }, ChainWalk::kDamaged,
       "1000>1010 1010! "},
      {"more segments than the image", [](Chain& c) { c.fixups.segmentCount = 2; },
       ChainWalk::kDamaged, ""},
      {"another version", [](Chain& c) { c.fixups.version = 1; }, ChainWalk::kUnknownForm, ""},
      {"a kernel's format", [](Chain& c) { c.fixups.format = DYLD_CHAINED_PTR_64_KERNEL_CACHE; },
       ChainWalk::kUnknownForm, ""},
      {"no page", [](Chain& c) { c.fixups.pages = {0xffff}; }, ChainWalk::kDone, ""},
  };
  for (const auto& each : cases) {
    Chain chain = sound;
    each.change(chain);
    ChainWalk result{};
    EXPECT_EQ(chain.walk(&result), each.sites) << each.what;
    EXPECT_EQ(result, each.result) << each.what;
  }
}

// Pages of no size would name the same place without end.
TEST(ChainWalk, NamesNoMorePlacesThanTheImageHolds) {
  Chain chain({test::chained64(0x10, 0)});
  chain.fixups.pageSize = 1;
  chain.fixups.pages.assign(0x4000, 0);
  ChainWalk result{};
  const std::string sites = chain.walk(&result);
  EXPECT_EQ(result, ChainWalk::kDamaged);
  EXPECT_LE(std::ranges::count(sites, '>'), 8);
}

}  // namespace
}  // namespace tovrek::macho
