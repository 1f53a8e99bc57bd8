#include "formats/Digest.h"

#include <gtest/gtest.h>

namespace tovrek {
namespace {

TEST(Digest, KnownValues) {
  const struct {
    DigestAlgorithm algorithm;
    const char* expected;
  } cases[] = {
      {DigestAlgorithm::kMd5, "900150983cd24fb0d6963f7d28e17f72"},
      {DigestAlgorithm::kSha1, "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {DigestAlgorithm::kSha256,
       "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
      {DigestAlgorithm::kSha384,
       "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca1"
       "34c825a7"},
      {DigestAlgorithm::kSha512,
       "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23"
       "a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
  };
  for (const auto& c : cases) EXPECT_EQ(hexLower(digestOf(c.algorithm, "abc")), c.expected);
}

TEST(Digest, PiecesGiveTheWholeAndFinishStartsAnew) {
  Digest digest(DigestAlgorithm::kSha1);
  digest.update("a");
  digest.update("");
  digest.update("bc");
  Digest moved = std::move(digest);
  EXPECT_EQ(moved.finish(), digestOf(DigestAlgorithm::kSha1, "abc"));
  EXPECT_EQ(moved.finish(), digestOf(DigestAlgorithm::kSha1, ""));
}

}  // namespace
}  // namespace tovrek
