// How companions find the programs that they stand in front of.
#include <sys/stat.h>

#include "tests/support/CompanionTest.h"

namespace tovrek::test {
namespace {

using Programs = CompanionTest;

// The folder that holds the companions may come first in PATH in two installations at once.
TEST_F(Programs, CompanionsOfOtherInstallationsAreSkipped) {
  folder_.write("other/System/Library/CoreServices/SystemVersion.plist", "");
  const std::string trap = folder_.write("other/usr/bin/openssl", "#!/bin/sh\nexit 99\n");
  ASSERT_EQ(::chmod(trap.c_str(), 0755), 0);
  const ScopedEnvironment path("PATH", folder_.file("other/usr/bin") + ":/usr/bin:/bin");
  EXPECT_EQ(run({"openssl", "version"}).status, 0);
}

}  // namespace
}  // namespace tovrek::test
