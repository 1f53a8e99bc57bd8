// What the fuzz program runs, on good inputs and on damaged variants of them, the same in every
// run.
#include <gtest/gtest.h>

#include <random>

#include "signing/CodeSignature.h"
#include "signing/RequirementParser.h"
#include "signing/Signer.h"
#include "tests/fuzz/signing_fuzzing.h"
#include "tests/signing/TestAuthority.h"
#include "tests/support/SignableImage.h"

namespace tovrek::signing {
namespace {

std::vector<std::string> seeds() {
  std::vector<std::string> seeds = {
      "identifier \"a b\" and (anchor apple or certificate 1[field.1.2.840.113635.100.6.2.1]) and "
      "! info[CFBundleVersion] >= 1.2 or certificate leaf[subject.CN] = *x* and (Named)",
      "certificate leaf[timestamp.1.2.3] < timestamp \"2011-07-01 00:00:00 +0000\" or platform = 2 "
      "or entitlement[k] absent or cdhash H\"0123456789012345678901234567890123456789\"",
      "designated => identifier 0x00ff library => certificate 1trusted # x",
  };
  for (int i = 0; i < 2; ++i) seeds.push_back(parseRequirement(seeds[i], nullptr)->blob());

  const test::TemporaryFolder folder;
  const test::TestAuthority authority;
  const std::string path = folder.write("tool", test::SignableImage::armv7().build());
  SignOptions options;
  options.identity = authority.identity();
  SignReport report;
  EXPECT_TRUE(sign(path, options, &report, nullptr));
  const auto file = CodeFile::open(path, nullptr);
  seeds.emplace_back(*signatureArea(file->images()[0]));
  return seeds;
}

TEST(FuzzReplay, DamagedInputsKeepThePromises) {
  constexpr int kVariants = 800;
  constexpr std::string_view kPieces[] = {"(", ")",  "!",    " and ", " or ",      "\"",
                                          "[", "]",  "*",    "/*",    "H\"",       "0x",
                                          "=", "\\", "\xff", " leaf", "timestamp "};
  std::mt19937 random(7);
  for (const std::string& seed : seeds()) {
    test::fuzzSigning(seed);
    for (int i = 0; i < kVariants; ++i) {
      std::string variant = seed;
      for (size_t changes = 1 + random() % 3; changes > 0; --changes) {
        const size_t at = random() % variant.size();
        switch (random() % 4) {
          case 0:
            variant[at] = static_cast<char>(random());
            break;
          case 1:
            variant.erase(at, 1 + random() % 4);
            break;
          case 2:
            variant.insert(at, kPieces[random() % std::size(kPieces)]);
            break;
          default:
            variant.insert(at, variant, random() % variant.size(), random() % 32);
        }
        if (variant.empty()) variant = " ";
      }
      test::fuzzSigning(variant);
    }
  }
}

}  // namespace
}  // namespace tovrek::signing
