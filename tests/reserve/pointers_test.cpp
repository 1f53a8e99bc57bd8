// Stored pointers of all architectures, and the offsets at which they await an adjustment.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <span>
#include <vector>

#include "macho/traits.h"
#include "reserve/PointerOffsets.h"
#include "reserve/stored_pointers.h"
#include "tests/support/MachOBuilder.h"

namespace tovrek::macho {
namespace {

template <class Arch>
uint64_t moved(uint64_t value) {
  typename Arch::Integer slot = static_cast<typename Arch::Integer>(value);
  std::array<std::byte, sizeof(slot)> bytes;
  std::memcpy(bytes.data(), &slot, sizeof(slot));
  std::byte* next = updateFunctionPtr<Arch>(100, 200, bytes.data(), -10);
  EXPECT_EQ(next, bytes.data() + bytes.size());
  std::memcpy(&slot, bytes.data(), sizeof(slot));
  return slot;
}

TEST(StoredPointers, UpperBoundCountsOnlyOffTheDevices) {
  const auto movedAll = [](uint64_t value) {
    return std::vector<uint64_t>{moved<ppc>(value),    moved<ppc64>(value), moved<x86>(value),
                                 moved<x86_64>(value), moved<arm>(value),   moved<arm64>(value)};
  };
  EXPECT_EQ(movedAll(99), std::vector<uint64_t>(6, 99));
  EXPECT_EQ(movedAll(100), std::vector<uint64_t>(6, 90));
  EXPECT_EQ(movedAll(199), std::vector<uint64_t>(6, 189));
  EXPECT_EQ(movedAll(200), (std::vector<uint64_t>{200, 200, 200, 200, 190, 190}));
}

TEST(StoredPointers, ClassesAreAskedForBySubtype) {
  const std::string image = test::MachOBuilder(test::kArmv7).build();
  EXPECT_EQ(wexClassProcess<arm>(std::as_bytes(std::span(image)), "x", image.size()), 9u);
  EXPECT_EQ(wexClassProcess<arm>(ByteView(), "x", 0), 0u);
}

TEST(PointerOffsets, AreUsedOnceAndForgotten) {
  std::array<std::byte, 24> image{};
  const uint64_t value = 5;
  std::memcpy(image.data() + 8, &value, 8);
  PointerOffsets offsets;
  offsets.addPointerOffset(8);
  offsets.addPointerOffset(8);
  offsets.addPointerOffset(17);  // does not fit any more
  for (int run = 0; run < 2; ++run) {
    offsets.wexUpdateAddressOffsets<arm64>(std::span<std::byte>(image), "x", 24, 0x1000);
    uint64_t now = 0;
    std::memcpy(&now, image.data() + 8, 8);
    EXPECT_EQ(now, 0x1005u) << "adjusted once, however often it was registered";
  }
}

}  // namespace
}  // namespace tovrek::macho
