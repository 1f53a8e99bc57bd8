// Measures the engine on generated images: engine_bench [MEGABYTES...] (default 1 10 100).
//
// Prints a Markdown table. Every measurement runs in a process of its own, so that its peak memory
// is its own; times are the least of five, in units of reading the same file once.
#include <fmt/format.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "engine/file_check.h"
#include "engine/file_insertion.h"
#include "tests/support/LargeImage.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

constexpr int kRuns = 5;

struct Measurement {
  double seconds = 0;
  double megabytes = 0;  // peak memory above that of a process that does nothing
};

double peakMegabytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
#ifdef __APPLE__
  return static_cast<double>(usage.ru_maxrss) / (1 << 20);
#else
  return static_cast<double>(usage.ru_maxrss) / 1024;
#endif
}

// Runs `work` in a child. Whatever fails there ends the program.
Measurement measureOnce(const std::function<void()>& work) {
  int ends[2];
  if (::pipe(ends) != 0) std::exit(1);
  const pid_t child = ::fork();
  if (child == 0) {
    Measurement result;
    const double before = peakMegabytes();
    const auto start = std::chrono::steady_clock::now();
    try {
      work();
    } catch (...) {
      std::fputs("the engine refused the image\n", stderr);
      ::_exit(1);
    }
    result.seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    result.megabytes = peakMegabytes() - before;
    ::_exit(::write(ends[1], &result, sizeof(result)) == sizeof(result) ? 0 : 1);
  }
  ::close(ends[1]);
  Measurement result;
  const bool complete = ::read(ends[0], &result, sizeof(result)) == sizeof(result);
  ::close(ends[0]);
  int status = 0;
  ::waitpid(child, &status, 0);
  if (!complete || status != 0) std::exit(1);
  return result;
}

Measurement measure(const std::function<void()>& prepare, const std::function<void()>& work) {
  Measurement least{1e9, 1e9};
  for (int run = 0; run < kRuns; ++run) {
    prepare();
    const Measurement once = measureOnce(work);
    least.seconds = std::min(least.seconds, once.seconds);
    least.megabytes = std::min(least.megabytes, once.megabytes);
  }
  return least;
}

// Touches every byte, as a copy would, without keeping any.
void readOnce(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::vector<char> block(1 << 16);
  while (file.read(block.data(), static_cast<std::streamsize>(block.size()))) {
  }
}

void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  if (!file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush()) std::exit(1);
}

void printRow(uint64_t megabytes, const char* kind, const std::string& image,
              const test::TemporaryFolder& folder) {
  const std::string path = folder.file("image");
  const WrapperLogger logger("Bench", std::nullopt);
  writeFile(path, image);
  const double size = static_cast<double>(image.size()) / (1 << 20);
  const Measurement reading = measure([] {}, [&] { readOnce(path); });
  const Measurement checking = measure([] {}, [&] { check(path, {}, logger); });
  const Measurement inserting = measure([&] { writeFile(path, image); },
                                        [&] { addDylib(kApplication, path, false, {}, logger); });
  fmt::print("| {} | {} | {:.2f} | {:.2f} | {:.2f} | {:.2f} | {:.2f} | {:.2f} |\n", megabytes, kind,
             reading.seconds * 1e3, checking.seconds * 1e3, checking.seconds / reading.seconds,
             checking.megabytes / size, inserting.seconds * 1e3, inserting.megabytes / size);
  std::fflush(stdout);
}

}  // namespace
}  // namespace tovrek

int main(int argc, char** argv) {
  using namespace tovrek;
  std::vector<uint64_t> sizes;
  for (int i = 1; i < argc; ++i) sizes.push_back(std::strtoull(argv[i], nullptr, 10));
  if (sizes.empty()) sizes = {1, 10, 100};
  // The insertion prints a line for each image.
  if (std::freopen("/dev/null", "w", stderr) == nullptr) return 1;
  fmt::print(
      "| MB | Image | Read, ms | Check, ms | Check / read | Check, memory / file | Insert, ms | "
      "Insert, memory / file |\n|---|---|---|---|---|---|---|---|\n");
  std::fflush(stdout);  // or every child prints it again
  const test::TemporaryFolder folder;
  for (const uint64_t megabytes : sizes) {
    const uint64_t size = megabytes << 20;
    printRow(megabytes, "program, arm64", test::proportionedImage(test::kArm64, size).build(),
             folder);
    // Nothing but symbols: 16 bytes and a name of 16 bytes each.
    test::LargeImage symbols;
    symbols.symbols = static_cast<uint32_t>(size / 32);
    printRow(megabytes, "symbols alone, arm64", symbols.build(), folder);
    test::LargeImage relocations;
    relocations.arch = test::kArmv7;
    relocations.localRelocations = static_cast<uint32_t>(size / 8);
    relocations.symbols = 2;
    printRow(megabytes, "relocations alone, armv7", relocations.build(), folder);
  }
  return 0;
}
