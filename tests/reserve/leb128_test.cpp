#include "reserve/leb128.h"

#include <gtest/gtest.h>

#include <array>
#include <vector>

#include "tests/support/engine_outcome.h"

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

}  // namespace
}  // namespace tovrek
