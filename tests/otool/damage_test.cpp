// Damaged files: listed as far as they can be read, in bounded time and space.

#include "macho/ChainedPointer.h"
#include "macho/Image.h"
#include "programs/otool/header_listing.h"
#include "programs/otool/library_listing.h"
#include "programs/otool/load_command_listing.h"
#include "programs/otool/objc_listing.h"
#include "tests/otool/PlainImage.h"
#include "tests/support/MachOBuilder.h"
#include "tests/support/changed_bytes.h"
#include "tests/support/listing/ListingTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

struct Listed {
  uint64_t size = 0;
  std::string problem;
  bool objcSound = true;
};

// Everything that otool can list of an image.
Listed listAll(const std::string& bytes) {
  Listed result;
  listing::Output output([&result](std::string_view text) { result.size += text.size(); });
  macho::visitImage(std::as_bytes(std::span(bytes)), [&](const auto& image) {
    result.problem = image.problem;
    if (image.bytes.size() < sizeof(image.header)) return;
    for (const bool verbose : {false, true}) {
      otool::listHeader(image, verbose, &output);
      otool::listLoadCommands(image, verbose, &output);
    }
    otool::listLibraryId(image, &output);
    otool::listLibraries(image, &output);
    result.objcSound = otool::listObjectiveC(image, &output);
  });
  output.flush();
  return result;
}

class Damage : public ListingTest {};

// The worth is in the sanitizers: nothing outside the image is touched.
TEST_F(Damage, ChangedBytesAreSurvived) {
  const std::string path = linked();
  const std::string plain = contentsOf(path);
  const PlainImage image(plain, host({TOVREK_LLVM_OBJDUMP, "-m", "--rebase", "--bind", path}));
  const std::string chained = image.chained(macho::DYLD_CHAINED_PTR_64, 1);
  const std::string narrow = contentsOf(object("armv7"));
  EXPECT_GT(listAll(plain).size, 10000u);
  for (const std::string* original : {&plain, &chained, &narrow}) {
    forEachChangedByte(*original, 13, 211, [](const std::string& changed) {
      EXPECT_LT(listAll(changed).size, 8u << 20);
    });
  }
}

// A list of many references to one class with many methods would be as long as their product.
TEST_F(Damage, RepetitionEnds) {
  constexpr uint64_t kMany = 500;
  MachOBuilder builder(kArm64);
  builder.length = 0x16000;
  const uint64_t data = builder.dataAddress();
  TestRecord& segment = builder.segment("__DATA").fields;
  segment["vmsize"] = segment["filesize"] = 0x6000;
  TestRecord& section = builder.section("__DATA", 0);
  section.rename("__objc_classlist");
  section["size"] = kMany * 8;
  section["flags"] = 0;
  builder.removeSegment("__LINKEDIT").makeStatic();
  std::string bytes = builder.build();
  const uint64_t start = section["offset"], classAddress = data + 0x2000;
  std::string list, methods;
  for (uint64_t i = 0; i < kMany; ++i) list += stored(kArm64, classAddress, 8);
  patch(&bytes, start, list);
  patch(&bytes, MachOBuilder::kDataOffset + 0x2000 + 32, stored(kArm64, data + 0x2100, 8));
  patch(&bytes, MachOBuilder::kDataOffset + 0x2100 + 32, stored(kArm64, data + 0x2200, 8));
  patch(&bytes, MachOBuilder::kDataOffset + 0x2200,
        stored(kArm64, 24, 4) + stored(kArm64, kMany, 4));
  const Listed listed = listAll(bytes);
  EXPECT_FALSE(listed.objcSound);
  EXPECT_GT(listed.size, bytes.size() * 32);
  EXPECT_LT(listed.size, bytes.size() * 80);
}

// What can be read is shown, with the reason and status 1; the other slices are unharmed.
TEST_F(Damage, UniversalFilesSliceBySlice) {
  const std::string good = MachOBuilder(kArm64).build();
  std::string bad = MachOBuilder(kArmv7).build();
  patch(&bad, 28 + 4, stored(kArmv7, 4, 4));  // the size of the first command
  const std::string fat = buildFat({{kArmv7, bad}, {kArm64, good}});
  const struct {
    std::string bytes, firstReason;
    bool secondIsWhole;
  } cases[] = {
      {fat, "(load command 0 with size less than 8 bytes)", true},
      {fat.substr(0, fat.size() - 100), "(load command 0 with size less than 8 bytes)", false},
      {fat.substr(0, 40),
       "truncated or malformed fat file (table of 2 architectures extends past "
       "the end of the file)",
       false},
  };
  for (const auto& c : cases) {
    const std::string path = folder_.write("fat", c.bytes);
    for (const char* program : {"otool", "nm"}) {
      const Outcome outcome = run({program, program == std::string("nm") ? "-j" : "-l", path});
      EXPECT_EQ(outcome.status, 1);
      EXPECT_THAT(outcome.errorOutput, HasSubstr(c.firstReason));
      if (c.secondIsWhole) {
        const std::string thin = folder_.write("thin", good);
        const Outcome alone = run({program, program == std::string("nm") ? "-j" : "-l", thin});
        EXPECT_THAT(
            outcome.output,
            EndsWith(alone.output.substr(program == std::string("nm") ? 0 : thin.size() + 2)));
      } else {
        EXPECT_THAT(outcome.errorOutput, HasSubstr("past the end of the file"));
      }
    }
  }
}

}  // namespace
}  // namespace tovrek::test
