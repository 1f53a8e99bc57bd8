// Damaged symbol tables: listed as far as they can be read, in bounded space.
#include <gtest/gtest.h>

#include "programs/nm/symbol_listing.h"
#include "tests/support/MachOBuilder.h"
#include "tests/support/changed_bytes.h"

namespace tovrek::test {
namespace {

struct Result {
  uint64_t size = 0;
  nm::Listed listed = nm::Listed::kNone;
};

Result listAll(const std::string& bytes) {
  Result result;
  listing::Output output([&result](std::string_view text) { result.size += text.size(); });
  macho::visitImage(std::as_bytes(std::span(bytes)), [&](const auto& image) {
    NmOptions options;
    options.debugSymbols = true;
    nm::listSymbols(image, options, "", &output);
    options.inWords = true;
    result.listed = nm::listSymbols(image, options, "", &output);
  });
  output.flush();
  return result;
}

// The worth is in the sanitizers: nothing outside the image is touched.
TEST(NmDamage, ChangedBytesAreSurvived) {
  for (const TestArch& arch : kSixArchs) {
    const std::string bytes = soundImage(arch);
    EXPECT_GT(listAll(bytes).size, 50u);
    forEachChangedByte(bytes, 3, 13, [](const std::string& changed) {
      EXPECT_LT(listAll(changed).size, 8u << 20);
    });
  }
}

// Many symbols with one long name would be as long as their product.
TEST(NmDamage, RepetitionEnds) {
  constexpr uint64_t kMany = 0x1000, kName = 0x4000;
  MachOBuilder builder(kArm64);
  builder.length = 0x20000;
  builder.command(2)["symoff"] = 0x4000;
  builder.command(2)["nsyms"] = kMany;
  builder.command(2)["stroff"] = 0x18000;
  builder.command(2)["strsize"] = kName;
  std::string bytes = builder.build();
  patch(&bytes, 0x18000, std::string(kName, 'n'));
  for (uint64_t i = 0; i < kMany; ++i) bytes[0x4000 + 16 * i + 4] = 0x0f;
  const Result result = listAll(bytes);
  EXPECT_EQ(result.listed, nm::Listed::kNotAll);
  EXPECT_LT(result.size, kMany * kName / 2);
}

}  // namespace
}  // namespace tovrek::test
