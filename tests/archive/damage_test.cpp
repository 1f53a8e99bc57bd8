// Damage at every place of an archive, under the sanitizers of the debug build.
#include <gtest/gtest.h>

#include <set>

#include "host/process.h"
#include "tests/fuzz/archive/archive_fuzzing.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {
namespace {

// Packed by the system's own program: a folder, a link, a stored and a deflated file.
std::string smallArchive() {
  const TemporaryFolder folder;
  folder.write("d/text", std::string(300, 'a') + "b");
  folder.write("d/stored", "xyz");
  Command link{.argv = {"/bin/ln", "-s", "text", folder.file("d/link")}};
  Command zip{.argv = {"/usr/bin/zip", "-qry", "x.zip", "d"}, .workingDirectory = folder.path()};
  Outcome outcome;
  EXPECT_TRUE(runProcess(link, &outcome) && runProcess(zip, &outcome) && outcome.status == 0);
  return contentsOf(folder.file("x.zip"));
}

TEST(Damage, EveryByteOfAnArchive) {
  const std::string whole = smallArchive();
  const std::set<std::string> sound = {"", std::string(300, 'a') + "b", "xyz", "text"};
  ASSERT_EQ(readArchive(whole).size(), 4U);
  for (size_t at = 0; at < whole.size(); ++at) {
    for (const int change : {0x01, 0x08, 0x80, 0xff}) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ change);
      // Contents come out as they went in, or not at all.
      for (const std::string& contents : readArchive(damaged)) {
        EXPECT_TRUE(sound.contains(contents)) << "byte " << at << " changed by " << change;
      }
    }
  }
}

TEST(Damage, EveryLengthOfAnArchive) {
  const std::string whole = smallArchive();
  for (size_t length = 0; length < whole.size(); ++length) {
    EXPECT_TRUE(readArchive(whole.substr(0, length)).empty()) << length;
  }
}

}  // namespace
}  // namespace tovrek::test
