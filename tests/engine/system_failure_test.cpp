// Failures that only the system can give. Each is provoked in a process of its own.
#include <gtest/gtest.h>

#ifdef __linux__
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include "tests/engine/EngineRun.h"

namespace tovrek {
namespace {

using test::MachOBuilder;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
constexpr bool kAddressSanitizer = __has_feature(address_sanitizer);
#else
constexpr bool kAddressSanitizer = false;
#endif

// Lets every later call of `number` fail.
void refuseSystemCall(uint32_t number) {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, number, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | EIO),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  sock_fprog filter{std::size(program), program};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &filter) != 0) {
    std::perror("prctl");
    std::_Exit(77);
  }
}

// Leaves room for `bytes` more memory.
void limitMemory(uint64_t bytes) {
  uint64_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  const uint64_t limit = pages * static_cast<uint64_t>(::sysconf(_SC_PAGESIZE)) + bytes;
  const rlimit both{limit, limit};
  ::setrlimit(RLIMIT_AS, &both);
}

void exitWith(const std::string& outcome) {
  std::fprintf(stderr, "<%s>", outcome.c_str());
  std::_Exit(0);
}

class SystemFailureDeathTest : public testing::Test {
 protected:
  test::TemporaryFolder folder_;
};

TEST_F(SystemFailureDeathTest, FileWithoutStatus) {
  const std::string path = folder_.write("image", MachOBuilder(test::kArm64).build());
  const auto attempt = [&](auto&& operation) {
    refuseSystemCall(SYS_newfstatat);
    refuseSystemCall(SYS_fstat);
    exitWith(operation());
  };
  EXPECT_EXIT(attempt([&] { return test::checkAt(path); }), testing::ExitedWithCode(0), "<1101>");
  EXPECT_EXIT(attempt([&] { return test::insertAt(path); }), testing::ExitedWithCode(0), "<1101>");
}

TEST_F(SystemFailureDeathTest, NoMemoryToMoveTheCommands) {
  if (kAddressSanitizer) GTEST_SKIP() << "the sanitizer needs all address space";
  constexpr uint64_t kMegabyte = 1 << 20;
  MachOBuilder b(test::kArm64);
  b.addPlain(0x1b, 64 * kMegabyte);
  b.section("__TEXT", 0)["offset"] = 65 * kMegabyte;
  b.length = 66 * kMegabyte;
  const std::string before = b.build();
  const std::string path = folder_.write("image", before);
  EXPECT_EXIT(
      {
        limitMemory(66 * kMegabyte + 32 * kMegabyte);
        exitWith(test::insertAt(path));
      },
      testing::ExitedWithCode(0), "<1105>");
  EXPECT_TRUE(test::sameBytes(test::contentsOf(path), before)) << "nothing is changed by then";
}

}  // namespace
}  // namespace tovrek
#endif
