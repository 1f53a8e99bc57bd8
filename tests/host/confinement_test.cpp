#include "host/confinement.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "host/files.h"
#include "host/process.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {
namespace {

// Confinement cannot be lifted: each test works in a child, whose answer is its status.
int inChild(const std::function<int()>& work) {
  const pid_t child = ::fork();
  if (child == 0) ::_exit(work());
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 255;
}

constexpr int kUnsupportedHere = 100;

// The bits of the operations that succeeded.
int writeEverywhere(const TemporaryFolder& folder) {
  const auto runs = [&](const std::string& script) {
    return runQuietly({.argv = {"/bin/sh", "-c", script},
                       .workingDirectory = folder.path(),
                       .standardError = StandardError::kCapture})
               .status == 0;
  };
  int done = 0;
  int bit = 1;
  for (const char* place : {"allowed", "outside"}) {
    const std::string in = folder.file(place);
    const bool worked[] = {writeFileAtomically(in + "/new", "x"), runs("echo x >>" + in + "/file"),
                           runs("mkdir " + in + "/d && mv " + in + "/file " + in + "/d/moved")};
    for (const bool did : worked) {
      if (did) done |= bit;
      bit <<= 1;
    }
  }
  // Through a link out of the folder, and reading, which stays as it is.
  if (appendToFile(folder.file("allowed/link"), "x")) done |= bit;
  std::string text;
  if (!readFile(folder.file("outside/file"), &text)) done |= bit;
  return done;
}

TEST(Confinement, HoldsForProcessAndChildren) {
  const TemporaryFolder folder;
  for (const char* wish : {"0", "1"}) {
    const ScopedEnvironment environment("TOVREK_CONFINE", wish);
    for (const char* name : {"allowed/file", "outside/file", "outside/target"}) {
      folder.write(name, "x");
    }
    ::symlink("../outside/target", folder.file("allowed/link").c_str());
    const int status = inChild([&] {
      const Confinement confinement = confine({.toWrite = {folder.file("allowed")}});
      if (confinement == Confinement::kUnsupported) return kUnsupportedHere;
      return writeEverywhere(folder);
    });
    if (status == kUnsupportedHere) GTEST_SKIP() << "this kernel has no Landlock";
    // All six writes, the one through the link, and the file read had been moved away; or the
    // three inside alone.
    EXPECT_EQ(status, wish == std::string("0") ? 0x7f | 0x40 : 0x07);
    for (const char* name : {"allowed", "outside"}) removeItem(folder.file(name));
  }
}

TEST(Confinement, CoreDumpsAreForbiddenToChildrenToo) {
  EXPECT_EQ(inChild([] {
              forbidCoreDumps();
              const Command command{.argv = {"/bin/sh", "-c", "test $(ulimit -Hc) = 0"}};
              return runQuietly(command).status;
            }),
            0);
}

}  // namespace
}  // namespace tovrek::test
