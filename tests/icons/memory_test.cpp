// What a conversion takes of memory: a child's peak while it converts one file.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>

#include "host/files.h"
#include "icons/IconConverter.h"
#include "tests/support/PngBuilder.h"
#include "tests/support/TemporaryFolder.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define TOVREK_UNDER_ASAN
#endif
#elif defined(__SANITIZE_ADDRESS__)
#define TOVREK_UNDER_ASAN
#endif

namespace tovrek {
namespace {

using test::bigEndian32;
using test::deflated;
using test::pngChunk;
using test::pngHeaderChunk;

struct Outcome {
  int result = -1;
  long megabytes = 0;  // above what the child began with
};

long peakKilobytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;
}

long mappedPages() {
  long pages = 0;
  std::FILE* file = std::fopen("/proc/self/statm", "r");
  if (file == nullptr || std::fscanf(file, "%ld", &pages) != 1) pages = -1;
  if (file != nullptr) std::fclose(file);
  return pages;
}

// In a child that may not map more than 600 MB on top of what it has.
Outcome convertInChild(const std::string& path) {
  int ends[2];
  if (::pipe(ends) != 0) return {};
  const pid_t child = ::fork();
  if (child == 0) {
    const rlim_t limit = static_cast<rlim_t>(mappedPages()) * 4096 + (rlim_t{600} << 20);
    const rlimit bounds{limit, limit};
    Outcome outcome;
    if (mappedPages() > 0 && ::setrlimit(RLIMIT_AS, &bounds) == 0 &&
        std::freopen("/dev/null", "w", stdout) != nullptr) {
      const long before = peakKilobytes();
      IconConverter converter;
      converter.settings().rewrite = true;
      outcome.result = converter.process(path);
      outcome.megabytes = (peakKilobytes() - before) / 1024;
    }
    const bool sent = ::write(ends[1], &outcome, sizeof outcome) == sizeof outcome;
    ::_exit(sent ? 0 : 1);
  }
  ::close(ends[1]);
  Outcome outcome;
  if (::read(ends[0], &outcome, sizeof outcome) != sizeof outcome) outcome = {};
  ::close(ends[0]);
  ::waitpid(child, nullptr, 0);
  return outcome;
}

TEST(IconMemory, StaysWithinWhatTheFileJustifies) {
#ifdef TOVREK_UNDER_ASAN
  GTEST_SKIP() << "the sanitizer maps memory of its own";
#endif
  const std::string start = test::pngSignature() + test::cgbiChunk();
  const auto icon = [&](const std::string& header, const std::string& image) {
    return start + header + pngChunk("IDAT", image) + pngChunk("IEND", "");
  };
  const std::string pixel = deflated(std::string(5, '\0'));
  const auto rows = [](size_t width, size_t height) {
    return std::string((width * 4 + 1) * height, '\0');
  };
  std::string crumbs = start + pngHeaderChunk(1, 1);
  for (int i = 0; i < 6'000'000; i++) crumbs += pngChunk("tEXt", "");

  struct Case {
    const char* what;
    std::string file;
    uint64_t paddedTo;  // with a hole that takes no room on the disk
    int result;
    long most;  // megabytes
  };
  const int failed = IconConverter::kFailed;
  for (const Case& c : {
           Case{"largest size", icon(pngHeaderChunk(0x7fffffff, 0x7fffffff), pixel), 0, failed, 8},
           Case{"promises 480 MB", icon(pngHeaderChunk(12000, 10000), pixel), 0, failed, 8},
           Case{"promises 120 MB", icon(pngHeaderChunk(6000, 5000), pixel), 0, failed, 8},
           Case{"bomb", icon(pngHeaderChunk(8, 8), deflated(rows(4096, 4096))), 0, failed, 8},
           Case{"chunk of 4 GB", start + bigEndian32(0xfffffff0) + "IDAT", 0, failed, 8},
           Case{"chunk of 4 GB in a file of 5", start + bigEndian32(0xfffffff0) + "IDAT",
                uint64_t{5} << 30, failed, 8},
           Case{"chunk of 300 MB", start + bigEndian32(300 << 20) + "IDAT", uint64_t{301} << 20,
                failed, 8},
           Case{"millions of empty chunks", std::move(crumbs), 0, failed, 250},
           // Large but honest: the rows and their packed form.
           Case{"6000 x 5000", icon(pngHeaderChunk(6000, 5000), deflated(rows(6000, 5000))), 0,
                IconConverter::kConverted, 250},
       }) {
    test::TemporaryFolder folder;
    const std::string path = folder.write("icon.png", c.file);
    if (c.paddedTo != 0) std::filesystem::resize_file(path, c.paddedTo);
    const Outcome outcome = convertInChild(path);
    EXPECT_EQ(outcome.result, c.result) << c.what;
    EXPECT_LE(outcome.megabytes, c.most) << c.what;
  }
}

}  // namespace
}  // namespace tovrek
