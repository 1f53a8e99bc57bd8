#include "engine/leb128.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <vector>

#include "engine/MachOChecker.h"
#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::outcomeOf;
using Bytes = std::vector<uint8_t>;

uint64_t readUnsigned(const Bytes& bytes) {
  return wex_read_uleb128(bytes.data(), bytes.data() + bytes.size());
}

TEST(Leb128, UnsignedBothWays) {
  const std::pair<uint64_t, Bytes> cases[] = {
      {0, {0}},
      {127, {0x7f}},
      {128, {0x80, 1}},
      {624485, {0xe5, 0x8e, 0x26}},
      {UINT64_MAX, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 1}},
  };
  for (const auto& [value, bytes] : cases) {
    EXPECT_EQ(readUnsigned(bytes), value);
    std::array<uint8_t, 10> buffer{};
    uint8_t* cursor = buffer.data();
    EXPECT_EQ(write_uleb128(value, cursor), bytes.back());
    EXPECT_EQ(Bytes(buffer.data(), cursor), bytes);
    EXPECT_EQ(wex_write_uleb128(value, buffer.data()), bytes.back());
  }
}

TEST(Leb128, UnsignedFailures) {
  const char kTooBig[] = "uleb128 too big for 64-bits";
  const char kTooLong[] = "malformed uleb128 extends beyond trie";
  EXPECT_EQ(outcomeOf([] { readUnsigned({}); }), kTooLong);
  EXPECT_EQ(outcomeOf([] { readUnsigned({0x80, 0xff}); }), kTooLong);
  Bytes ten(9, 0xff);
  ten.push_back(2);  // a bit above the 64th
  EXPECT_EQ(outcomeOf([&] { readUnsigned(ten); }), kTooBig);
  Bytes zeros(10, 0x80);
  zeros.push_back(0);  // nothing lost, but shifted by 70
  EXPECT_EQ(outcomeOf([&] { readUnsigned(zeros); }), kTooBig);
}

TEST(Leb128, SignedBothWays) {
  const std::pair<int64_t, Bytes> cases[] = {
      {0, {0}},
      {63, {0x3f}},
      {64, {0xc0, 0}},
      {-1, {0x7f}},
      {-64, {0x40}},
      {-65, {0xbf, 0x7f}},
      {-123456, {0xc0, 0xbb, 0x78}},
      {INT64_MAX, {0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0xff, 0}},
      {INT64_MIN, {0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x80, 0x7f}},
  };
  for (const auto& [value, bytes] : cases) {
    std::array<uint8_t, 10> buffer{};
    uint8_t* cursor = buffer.data();
    EXPECT_EQ(write_sleb128(value, cursor), bytes.back());
    EXPECT_EQ(Bytes(buffer.data(), cursor), bytes);
    EXPECT_EQ(wex_write_sleb128(value, buffer.data()), bytes.back());
    const uint8_t* from = buffer.data();
    EXPECT_EQ(read_sleb128(from, cursor), value);
    EXPECT_EQ(from, cursor);
  }
}

template <class Arch>
uint64_t moved(uint64_t value) {
  typename Arch::Integer slot = static_cast<typename Arch::Integer>(value);
  std::array<std::byte, sizeof(slot)> bytes;
  std::memcpy(bytes.data(), &slot, sizeof(slot));
  std::byte* next = macho::MachOChecker<Arch>::updateFunctionPtr(100, 200, bytes.data(), -10);
  EXPECT_EQ(next, bytes.data() + bytes.size());
  std::memcpy(&slot, bytes.data(), sizeof(slot));
  return slot;
}

TEST(StoredPointers, UpperBoundCountsOnlyOffTheDevices) {
  const auto movedAll = [](uint64_t value) {
    return std::vector<uint64_t>{moved<macho::ppc>(value), moved<macho::ppc64>(value),
                                 moved<macho::x86>(value), moved<macho::x86_64>(value),
                                 moved<macho::arm>(value), moved<macho::arm64>(value)};
  };
  EXPECT_EQ(movedAll(99), std::vector<uint64_t>(6, 99));
  EXPECT_EQ(movedAll(100), std::vector<uint64_t>(6, 90));
  EXPECT_EQ(movedAll(199), std::vector<uint64_t>(6, 189));
  EXPECT_EQ(movedAll(200), (std::vector<uint64_t>{200, 200, 200, 200, 190, 190}));
}

TEST(StoredPointers, RegistryIsEmptiedOnce) {
  std::array<std::byte, 24> image{};
  const uint64_t value = 5;
  std::memcpy(image.data() + 8, &value, 8);
  macho::addPointerOffset(8);
  macho::addPointerOffset(8);
  macho::addPointerOffset(17);  // does not fit any more
  for (int run = 0; run < 2; ++run) {
    macho::MachOChecker<macho::arm64>::wexUpdateAddressOffsets(std::span<std::byte>(image), "x", 24,
                                                               0x1000);
    uint64_t now = 0;
    std::memcpy(&now, image.data() + 8, 8);
    EXPECT_EQ(now, 0x1005u) << "adjusted once, however often it was registered";
  }
}

}  // namespace
}  // namespace tovrek
