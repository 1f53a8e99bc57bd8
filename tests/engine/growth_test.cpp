// Work grows no faster than the file, honest or hostile: the processor time for two sizes is
// compared, never measured against the clock.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <functional>

#include "tests/engine/EngineRun.h"
#include "tests/support/LargeImage.h"

namespace tovrek {
namespace {

using test::LargeImage;
using test::MachOBuilder;

constexpr uint32_t kTimes = 8;
// n log n gives about 10; the square would give 64.
constexpr double kLargestRatio = 30;

double processorSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The least of some runs: what else the machine does only ever adds.
double secondsFor(const std::string& path, const std::string& expected) {
  double least = 1e9;
  for (int run = 0; run < 3; ++run) {
    const double start = processorSeconds();
    EXPECT_EQ(test::checkAt(path), expected);
    least = std::min(least, processorSeconds() - start);
  }
  return least;
}

struct GrowthCase {
  const char* what;
  uint32_t count;  // the larger one
  const char* expected;
  std::function<std::string(uint32_t)> build;
};

void expectLinear(const GrowthCase& each) {
  const test::TemporaryFolder folder;
  const uint32_t count = each.count;
  const double few = secondsFor(folder.write("few", each.build(count / kTimes)), each.expected);
  const double many = secondsFor(folder.write("many", each.build(count)), each.expected);
  EXPECT_LT(many, few * kLargestRatio) << each.what << ": " << few << " and " << many;
}

std::string manyOf(uint32_t LargeImage::*what, const test::TestArch& arch, uint32_t count) {
  LargeImage image;
  image.arch = arch;
  image.symbols = 2;
  image.*what = count;
  return image.build();
}

TEST(Growth, MillionsOfEntries) {
  const auto images = [](uint32_t LargeImage::*what, const test::TestArch& arch) {
    return [=](uint32_t count) { return manyOf(what, arch, count); };
  };
  const GrowthCase cases[] = {
      {"symbols", 1000000, "ok", images(&LargeImage::symbols, test::kArm64)},
      {"undefined symbols", 1000000, "ok", images(&LargeImage::undefined, test::kPpc)},
      {"initializers", 1000000, "ok", images(&LargeImage::initializers, test::kArm64)},
      {"local relocations", 1000000, "ok", images(&LargeImage::localRelocations, test::kArmv7)},
      {"external relocations", 1000000, "ok",
       images(&LargeImage::externalRelocations, test::kX86_64)},
  };
  for (const GrowthCase& each : cases) expectLinear(each);
}

// Sections that all name the same initialisers: as many of these as of those.
std::string overlappingInitializers(uint32_t count) {
  LargeImage image;
  image.initializers = image.initializerSections = count;
  return image.build();
}

std::string manySegments(uint32_t count) {
  MachOBuilder b(test::kArm64);
  b.segment("__TEXT").sections.clear();
  for (uint64_t i = 0; i < count; ++i) {
    b.addSegment("S", 0x200000000 + i * 0x1000, 0x1000, 0, 0, 3);
  }
  b.length = b.buildCommands().size() + 0x4000;
  return b.build();
}

// Each is a tail of the next, so that hashing them one by one would read the square of the pool.
std::string tailNames(uint32_t count) {
  return std::string(1, '\0') + std::string(count, 'x') + '\0';
}

// "ab" and "b]" are alike to the usual hash of names (times 5 plus the next letter), and so are all
// rows of them.
std::string equalHashNames(uint32_t count) {
  std::string strings(1, '\0');
  for (uint32_t i = 0; i < count; ++i) {
    for (int bit = 0; bit < 20; ++bit) strings += (i >> bit & 1) != 0 ? "ab" : "b]";
    strings += '\0';
  }
  return strings;
}

// An image with `count` symbols whose names start `distance` bytes apart in `strings`, and as many
// undefined ones that all have one long name.
std::string namedSymbols(uint32_t count, std::string strings, uint32_t distance) {
  LargeImage image;
  image.arch = test::kArm64;
  image.symbols = image.undefined = count;
  std::string bytes = image.build();
  // The pool is replaced by one behind all else.
  const auto last = static_cast<uint32_t>(strings.size());
  strings += std::string(100000, 'y') + '\0';
  strings.resize((strings.size() + 0xfff) & ~size_t{0xfff});
  const uint64_t symbolCommand =
      bytes.find(test::stored(image.arch, 2, 4) + test::stored(image.arch, 24, 4));
  const auto word = [&](uint64_t at) {
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i) value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    return value;
  };
  const uint64_t symbolsAt = word(symbolCommand + 8);
  for (uint32_t i = 0; i < 2 * count; ++i) {
    const uint32_t start = i < count ? 1 + i * distance : last;
    test::patch(&bytes, symbolsAt + uint64_t{i} * 16, test::stored(image.arch, start, 4));
  }
  test::patch(&bytes, symbolCommand + 16, test::stored(image.arch, bytes.size(), 4));
  test::patch(&bytes, symbolCommand + 20, test::stored(image.arch, strings.size(), 4));
  const uint64_t linkEdit = bytes.find("__LINKEDIT") - 8;
  const uint64_t start = word(linkEdit + 40);
  bytes += strings;
  test::patch(&bytes, linkEdit + 32, test::stored(image.arch, bytes.size() - start, 8));
  test::patch(&bytes, linkEdit + 48, test::stored(image.arch, bytes.size() - start, 8));
  return bytes;
}

TEST(Growth, HostileImages) {
  const GrowthCase cases[] = {
      {"overlapping initializers", 16000, "ok", overlappingInitializers},
      {"segments", 32000, "1131", manySegments},
      {"names that are tails", 200000, "ok",
       [](uint32_t count) { return namedSymbols(count, tailNames(count), 1); }},
      {"names of one hash", 200000, "ok",
       [](uint32_t count) { return namedSymbols(count, equalHashNames(count), 41); }},
  };
  for (const GrowthCase& each : cases) expectLinear(each);
}

}  // namespace
}  // namespace tovrek
