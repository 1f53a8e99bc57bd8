// The fuzz target on its seeds and on damaged variants of them, the same in every run.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>

#include "tests/fuzz/icon_seeds.h"
#include "tests/support/PngBuilder.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace tovrek {
namespace {

constexpr int kVariants = 60;

// Aborts when an input breaks a promise.
void run(const std::string& input) {
  testing::internal::CaptureStdout();
  LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(input.data()), input.size());
  testing::internal::GetCapturedStdout();
}

class Variants {
 public:
  explicit Variants(std::string other) : other_(std::move(other)) {}

  std::string of(std::string file) {
    for (size_t changes = 1 + below(4); changes > 0 && file.size() > 4; changes--) change(file);
    return file;
  }

 private:
  size_t below(size_t limit) { return random_() % limit; }

  void change(std::string& file) {
    constexpr std::array<uint32_t, 6> kNumbers = {0,          1,          0x7fffffff,
                                                  0x80000000, 0xfffffffc, 0xffffffff};
    const size_t at = below(file.size() - 4);
    const size_t size = 1 + below(std::min<size_t>(file.size() - at, 30));
    switch (below(5)) {
      case 0:
        file[at] = static_cast<char>(random_());
        break;
      case 1:
        file.replace(at, 4, test::bigEndian32(kNumbers[below(kNumbers.size())]));
        break;
      case 2:
        file.erase(at, size);
        break;
      case 3:
        file.insert(at, file.substr(at, size));
        break;
      default:
        file.replace(at, std::string::npos, other_.substr(below(other_.size())));
    }
  }

  std::mt19937 random_{1};
  const std::string other_;
};

TEST(IconFuzz, SeedsAndVariantsKeepThePromises) {
  const std::map<std::string, std::string> seeds = test::iconSeeds();
  ASSERT_GT(seeds.size(), 30U);
  Variants variants(seeds.at("rgba-adam7-filter-1"));
  for (const auto& [name, file] : seeds) {
    SCOPED_TRACE(name);
    run(file);
    for (int i = 0; i < kVariants; i++) run(variants.of(file));
  }
}

}  // namespace
}  // namespace tovrek
