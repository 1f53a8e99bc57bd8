#include "macho/leb128.h"

#include <gtest/gtest.h>

#include <vector>

namespace tovrek::macho {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes repeated(size_t count, uint8_t byte, Bytes tail) {
  tail.insert(tail.begin(), count, byte);
  return tail;
}

// `read` takes the number and leaves the byte of something else that follows.
template <class Number, class Read>
void expectNumber(const Read& read, Number value, Bytes bytes) {
  bytes.push_back(0xff);
  const uint8_t* cursor = bytes.data();
  Number number = 99;
  EXPECT_EQ(read(cursor, bytes.data() + bytes.size(), &number), Leb128::kRead);
  EXPECT_EQ(number, value);
  EXPECT_EQ(cursor, bytes.data() + bytes.size() - 1);
}

TEST(Leb128, NumbersUpTo64Bits) {
  const std::pair<uint64_t, Bytes> unsignedOnes[] = {
      {0, {0}},
      {127, {0x7f}},
      {128, {0x80, 1}},
      {624485, {0xe5, 0x8e, 0x26}},
      {5, {0x85, 0x80, 0x80, 0}},  // longer than needed
      {UINT64_MAX, repeated(9, 0xff, {1})},
  };
  for (const auto& [value, bytes] : unsignedOnes) expectNumber(readUleb128, value, bytes);
  const std::pair<int64_t, Bytes> signedOnes[] = {
      {0, {0}},
      {63, {0x3f}},
      {64, {0xc0, 0}},
      {-1, {0x7f}},
      {-65, {0xbf, 0x7f}},
      {-123456, {0xc0, 0xbb, 0x78}},
      {INT64_MAX, repeated(9, 0xff, {0})},
      {INT64_MIN, repeated(9, 0x80, {0x7f})},
  };
  for (const auto& [value, bytes] : signedOnes) expectNumber(readSleb128, value, bytes);
}

TEST(Leb128, WhatIsNoNumber) {
  const struct {
    Bytes bytes;
    Leb128 asUnsigned, asSigned;
  } cases[] = {
      {{}, Leb128::kCutOff, Leb128::kCutOff},
      {{0x80, 0xff}, Leb128::kCutOff, Leb128::kCutOff},
      {repeated(9, 0xff, {2}), Leb128::kTooBig, Leb128::kRead},     // a bit above the 64th
      {repeated(10, 0x80, {0}), Leb128::kTooBig, Leb128::kTooBig},  // nothing lost, but too long
  };
  for (const auto& each : cases) {
    const uint8_t* const end = each.bytes.data() + each.bytes.size();
    const uint8_t* cursor = each.bytes.data();
    uint64_t number = 99;
    EXPECT_EQ(readUleb128(cursor, end, &number), each.asUnsigned);
    EXPECT_EQ(number, 99u);
    EXPECT_LE(cursor, end);
    cursor = each.bytes.data();
    int64_t signedNumber = 0;
    EXPECT_EQ(readSleb128(cursor, end, &signedNumber), each.asSigned);
  }
}

}  // namespace
}  // namespace tovrek::macho
