// Damaged and hostile files: every outcome is a clean refusal or acceptance, in time that grows
// no faster than the file.
#include <gtest/gtest.h>

#include <chrono>

#include "host/files.h"
#include "tests/macho/EngineRun.h"

namespace tovrek {
namespace {

using test::checkBytes;
using test::MachOBuilder;
using test::outcomeOf;

const test::TestArch kChosen[] = {test::kPpc, test::kArmv7, test::kArm64};

// The sanitizers judge; insertion, which waits for the disk, is tried on some of the files.
class Tried {
 public:
  void operator()(const std::string& bytes) {
    EXPECT_NE(checkBytes(bytes), "");
    if (++count_ % 8 != 0) return;
    const std::string path = folder_.write("image", bytes);
    EXPECT_NE(outcomeOf([&] { addDylib(2, path, false); }), "");
    EXPECT_EQ(fileSize(path), bytes.size()) << "a file never grows";
  }

 private:
  const test::TemporaryFolder folder_;
  int count_ = 0;
};

TEST(Damage, TruncationsAndBytesOfExtremes) {
  Tried tried;
  testing::internal::CaptureStderr();
  for (const test::TestArch& arch : kChosen) {
    MachOBuilder b(arch);
    b.local.push_back({0x100, b.relocationInfo(1, false, 2, false, 0)});
    const std::string good = b.build();
    // Steps that meet all bytes of a word in turn.
    for (uint64_t size = 1; size < b.commandsEnd() + 8; size += 7) tried(good.substr(0, size));
    for (uint64_t at = 0; at < b.commandsEnd(); at += 3) {
      std::string bad = good;
      bad[at] = static_cast<char>(at % 2 == 0 ? 0xff : 0x7f);
      tried(bad);
    }
    for (uint64_t at = 0; at < b.commandsEnd(); at += 4) {
      std::string bad = good;
      test::patch(&bad, at, std::string(4, '\xff'));
      tried(bad);
    }
  }
  testing::internal::GetCapturedStderr();
}

class Stopwatch {
 public:
  double seconds() const {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// Generous for a machine under load with sanitizers; quadratic work would take minutes.
constexpr double kSoon = 20;

TEST(Damage, ManySegmentsTakeLinearTime) {
  MachOBuilder b(test::kArm64);
  for (uint64_t i = 0; i < 30000; ++i) {
    b.addSegment("S", 0x200000000 + i * 0x1000, 0x1000, 0, 0, 3);
  }
  b.length = 0x400000;
  b.segment("__TEXT").sections.clear();
  const Stopwatch watch;
  EXPECT_EQ(checkBytes(b.build()), "1131");
  EXPECT_LT(watch.seconds(), kSoon);
}

// Symbols whose names are all tails of one long string, and names that all have one hash.
TEST(Damage, HostileSymbolNamesTakeLinearTime) {
  constexpr uint32_t kCount = 60000;
  for (bool sameHash : {false, true}) {
    MachOBuilder b(test::kArmv7);
    const uint64_t symbolBytes = uint64_t{kCount} * 2 * 12;
    b.symbols.clear();
    std::string strings(1, '\0');
    for (uint32_t i = 0; i < kCount; ++i) {
      b.symbols.push_back({static_cast<uint32_t>(strings.size()), 0x0f, 1});
      if (sameHash) {
        // "ab" and "b]" hash alike, and so do all rows of them.
        for (int bit = 0; bit < 16; ++bit) strings += (i >> bit & 1) != 0 ? "ab" : "b]";
        strings += '\0';
      } else {
        strings += 'x';
      }
    }
    strings += '\0';
    // As many undefined symbols, all with one long name.
    const auto last = static_cast<uint32_t>(strings.size());
    strings += std::string(100000, 'x') + '\0';
    strings.resize((strings.size() + 7) & ~size_t{7});
    for (uint32_t i = 0; i < kCount; ++i) b.symbols.push_back({last, 0x01, 0});
    b.command(0xb)["nextdefsym"] = kCount;
    b.command(0xb)["iundefsym"] = kCount;
    b.command(0xb)["nundefsym"] = kCount;
    b.command(0x2)["stroff"] = 0;
    b.segment("__LINKEDIT").fields["filesize"] = 0;
    // The tables follow the builder's own pages.
    const uint64_t symbolsAt = 0x5000, stringsAt = symbolsAt + ((symbolBytes + 7) & ~uint64_t{7});
    b.command(0x2)["symoff"] = symbolsAt;
    b.command(0x2)["nsyms"] = b.symbols.size();
    b.command(0x2)["stroff"] = stringsAt;
    b.command(0x2)["strsize"] = strings.size();
    b.length = (stringsAt + strings.size() + 0xfff) & ~uint64_t{0xfff};
    b.segment("__LINKEDIT").fields["filesize"] = b.length - 0x3000;
    b.segment("__LINKEDIT").fields["vmsize"] = b.length;
    std::vector<test::TestSymbol> symbols;
    symbols.swap(b.symbols);
    std::string bytes = b.build();
    std::string table;
    for (const test::TestSymbol& symbol : symbols) {
      table += test::stored(b.arch, symbol.strx, 4) + static_cast<char>(symbol.type) +
               static_cast<char>(symbol.sect) + std::string(6, '\0');
    }
    test::patch(&bytes, symbolsAt, table);
    test::patch(&bytes, stringsAt, strings);
    const Stopwatch watch;
    EXPECT_EQ(checkBytes(bytes), "ok");
    EXPECT_LT(watch.seconds(), kSoon);
  }
}

TEST(Damage, OverlappingSlicesAreNotCheckedAgainAndAgain) {
  const std::string image = MachOBuilder(test::kArm64).build();
  std::vector<test::FatMember> members(3, {test::kArm64, image});
  std::string file = test::buildFat(members);
  const test::TestArch order{"", true, false, 0, 0};
  for (int i = 0; i < 3; ++i) {
    test::patch(&file, 8 + 20 * i + 8, test::stored(order, 0x4000, 4));
    test::patch(&file, 8 + 20 * i + 12, test::stored(order, file.size() - 0x4000, 4));
  }
  EXPECT_EQ(checkBytes(file), "1104");
}

}  // namespace
}  // namespace tovrek
