#include "host/delivery.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "host/files.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using test::contentsOf;
using test::TemporaryFolder;
namespace fs = std::filesystem;

enum class Standing { kNothing, kFile, kLinkToFile, kFolder, kLinkToNothing };

struct DeliveryCase {
  Standing standing;
  bool delivered;
};

constexpr DeliveryCase kCases[] = {{Standing::kNothing, true},
                                   {Standing::kFile, true},
                                   {Standing::kLinkToFile, true},
                                   {Standing::kFolder, false},
                                   {Standing::kLinkToNothing, false}};

void prepare(Standing standing, const TemporaryFolder& folder) {
  folder.write("keep/old", "old");
  switch (standing) {
    case Standing::kNothing:
      break;
    case Standing::kFile:
      // The second name shows whether the old file was replaced or written to.
      fs::create_hard_link(folder.file("keep/old"), folder.file("to"));
      break;
    case Standing::kLinkToFile:
      fs::create_symlink("keep/old", folder.file("to"));
      break;
    case Standing::kFolder:
      createDirectories(folder.file("to"));
      break;
    case Standing::kLinkToNothing:
      fs::create_symlink("nowhere", folder.file("to"));
      break;
  }
}

// The new file comes from a folder of the same file system and from one in memory.
TEST(Delivery, ReplacesFilesAndNothingElse) {
  for (const char* origin : {"", "/dev/shm"}) {
    for (const Source source : {Source::kKept, Source::kSpent}) {
      for (const DeliveryCase& c : kCases) {
        SCOPED_TRACE(std::string(origin) + " " + std::to_string(static_cast<int>(c.standing)));
        const TemporaryFolder folder;
        prepare(c.standing, folder);
        const std::string from = *origin != '\0' ? std::string(origin) + "/" +
                                                       fs::path(folder.path()).filename().string()
                                                 : folder.file("keep/from");
        ASSERT_TRUE(writeFileAtomically(from, "new"));
        fs::permissions(from, fs::perms(0640));
        ErrorText error;
        EXPECT_EQ(deliverFile(from, folder.file("to"), source, &error), c.delivered);
        EXPECT_EQ(contentsOf(folder.file("keep/old")), "old");
        EXPECT_EQ(error.text(), c.delivered ? "" : "File exists");
        if (c.delivered) {
          EXPECT_EQ(contentsOf(folder.file("to")), "new");
          EXPECT_FALSE(isSymbolicLink(folder.file("to")));
          EXPECT_EQ(fileMode(folder.file("to")), 0640U);
        }
        if (source == Source::kKept || !c.delivered) {
          EXPECT_EQ(contentsOf(from), "new");
        }
        // Nothing is left beside it.
        EXPECT_EQ(listDirectory(folder.path())->size(), 2U);
        fs::remove(from);
      }
    }
  }
}

TEST(Delivery, OldFileStaysWhenTheNewOneCannotBeMade) {
  const TemporaryFolder folder;
  // In the longest folder that there can be, no longer name has room.
  std::string deep = folder.file("deep");
  constexpr size_t kLength = 4080;
  while (deep.size() < kLength) {
    deep += "/" + std::string(std::min<size_t>(200, kLength - deep.size()), 'd');
  }
  ASSERT_TRUE(createDirectories(deep));
  const std::string to = deep + "/to";
  ASSERT_NE(::symlink("x", (deep + "/" + std::string(44, 'l')).c_str()), 0);
  const std::string from = folder.write("from", "old");
  ASSERT_TRUE(::link(from.c_str(), to.c_str()) == 0);
  ASSERT_TRUE(removeItem(from));
  folder.write("from", "new");
  ErrorText error;
  EXPECT_FALSE(deliverFile(from, to, Source::kSpent, &error));
  EXPECT_EQ(error.text(), "File name too long");
  EXPECT_EQ(contentsOf(to), "old");
  EXPECT_EQ(contentsOf(from), "new");
}

}  // namespace
}  // namespace tovrek
