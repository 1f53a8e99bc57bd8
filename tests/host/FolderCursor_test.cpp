#include "host/FolderCursor.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "host/files.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using test::contentsOf;
using test::TemporaryFolder;

TEST(FolderCursor, NeverLeavesItsRootByALink) {
  const TemporaryFolder folder;
  createDirectories(folder.file("root/inner"));
  createDirectories(folder.file("outside/deep"));
  ASSERT_EQ(::symlink("../outside", folder.file("root/link").c_str()), 0);
  folder.write("root/file", "");
  FolderCursor cursor;
  ASSERT_TRUE(cursor.openRoot(folder.file("root")));
  for (const char* path : {"link", "link/deep", "link/new", "file", "file/x"}) {
    EXPECT_FALSE(cursor.enter(path, true)) << path;
    EXPECT_TRUE(errno == ELOOP || errno == ENOTDIR) << path;
  }
  EXPECT_TRUE(cursor.has("inner")) << "still in the root";
  EXPECT_FALSE(fileExists(folder.file("outside/new")));
}

TEST(FolderCursor, MakesItemsInTheFolderEntered) {
  const TemporaryFolder folder;
  FolderCursor cursor;
  ASSERT_TRUE(cursor.openRoot(folder.path()));
  ASSERT_TRUE(cursor.enter("a/b", true));
  NewFile file = cursor.createFile("file");
  ASSERT_TRUE(file.isOpen() && file.write("text") && file.finish(0640, 1000));
  EXPECT_FALSE(cursor.createFile("file").isOpen()) << "never opens what stands there";
  ASSERT_TRUE(cursor.makeLink("link", "file"));
  EXPECT_FALSE(cursor.createFile("link").isOpen());

  FolderCursor other(cursor);
  EXPECT_TRUE(other.has("a")) << "a copy begins at the root";
  ASSERT_TRUE(cursor.enter("", false) && cursor.makeFolder("c"));
  NewFile mapped = cursor.createFile("mapped");
  ASSERT_TRUE(mapped.writeMapped(
      3, [](std::span<std::byte> room) { std::fill(room.begin(), room.end(), std::byte{'m'}); }));
  ASSERT_TRUE(cursor.enter("a/b", false)) << "back to the folder before";
  EXPECT_TRUE(cursor.has("link") && cursor.remove("link") && !cursor.has("link"));

  EXPECT_EQ(contentsOf(folder.file("a/b/file")), "text");
  EXPECT_EQ(fileMode(folder.file("a/b/file")), 0640U);
  EXPECT_EQ(modificationTime(folder.file("a/b/file")), 1000);
  EXPECT_EQ(contentsOf(folder.file("mapped")), "mmm");
  EXPECT_TRUE(isDirectory(folder.file("c")));
}

}  // namespace
}  // namespace tovrek
