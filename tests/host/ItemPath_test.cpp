#include "host/ItemPath.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "host/EditedFile.h"
#include "host/InputFile.h"
#include "host/MappedFile.h"
#include "host/delivery.h"
#include "host/files.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {
namespace {

// A guarded folder with links to another one, which holds what nobody may reach.
class GuardedFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    folder.write("outside/file", "secret");
    folder.write("in/sub/file", "own");
    ::symlink((folder.path() + "/outside").c_str(), folder.file("in/away").c_str());
    ::symlink("sub", folder.file("in/inner").c_str());
    ::symlink("sub/file", folder.file("in/link").c_str());
    ::mkfifo(folder.file("in/pipe").c_str(), 0600);
  }

  TemporaryFolder folder;
  ScopedEnvironment guarded{"TOVREK_GUARDED", ""};
};

TEST_F(GuardedFolder, NothingGoesThroughLinks) {
  const auto in = [this](const char* name) { return folder.file(std::string("in/") + name); };
  std::string text;
  MappedFile mapped;
  EditedFile edited;
  InputFile input;
  const std::pair<const char*, std::function<bool(const std::string&)>> operations[] = {
      {"read", [&](const std::string& path) { return readFile(path, &text); }},
      {"open", [&](const std::string& path) { return input.open(path); }},
      {"map", [&](const std::string& path) { return mapped.open(path); }},
      {"edit", [&](const std::string& path) { return edited.open(path) == Mapped::kDone; }},
      {"append", [&](const std::string& path) { return appendToFile(path, "x"); }},
      {"write", [&](const std::string& path) { return writeFileAtomically(path + ".n", "x"); }},
      {"make", [&](const std::string& path) { return createDirectories(path + ".d/e"); }},
      {"copy", [&](const std::string& path) { return copyItem(in("sub/file"), path + ".c"); }},
      {"deliver",
       [&](const std::string& path) {
         return deliverFile(in("sub/file"), path + ".v", Source::kKept);
       }},
      {"move", [&](const std::string& path) { return moveItem(path, path + ".m"); }},
      {"remove", [&](const std::string& path) { return removeItem(path + ".r"); }}};
  for (const bool isGuarded : {false, true}) {
    if (isGuarded) guardFolder(folder.file("in"));
    for (const auto& [name, operation] : operations) {
      SCOPED_TRACE(name);
      for (const char* way : {"sub/file", "inner/file"}) {
        folder.write("in/sub/file", "own");
        folder.write("in/sub/file.r", "own");
        EXPECT_NE(operation(in(way)), isGuarded && way == std::string("inner/file"));
        for (const char* made : {"file.n", "file.d", "file.c", "file.v", "file.m"}) {
          removeItem(in("sub/") + made);
        }
      }
    }
    EXPECT_NE(readFile(in("link"), &text), isGuarded);
    EXPECT_NE(readFile(in("away/file"), &text), isGuarded);
    EXPECT_NE(listDirectory(in("away")).has_value(), isGuarded);
    EXPECT_NE(readFile(in("sub/../../outside/file"), &text), isGuarded);
  }
  EXPECT_FALSE(readFile(in("pipe"), &text));  // would wait for ever
  EXPECT_EQ(listDirectory(folder.file("outside"))->size(), 1U);
}

TEST_F(GuardedFolder, IsKnownByAllItsNames) {
  ::symlink("in", folder.file("other").c_str());
  guardFolder(folder.file("other"));
  std::string text;
  const std::string root = folder.path();
  for (const std::string& path :
       {root + "/in/link", root + "/other/link", root + "//in/./link", root + "/in//link"}) {
    EXPECT_FALSE(readFile(path, &text)) << path;
  }
  EXPECT_TRUE(readFile(root + "//in/sub//file", &text));
  // Beside it, and as the working folder.
  EXPECT_TRUE(readFile(folder.write("in.txt", "x"), &text));
  const auto here = realPath(".");
  ASSERT_EQ(::chdir(folder.file("in").c_str()), 0);
  EXPECT_FALSE(readFile("link", &text));
  EXPECT_TRUE(readFile("./sub/file", &text));
  ASSERT_EQ(::chdir(here->c_str()), 0);
}

}  // namespace
}  // namespace tovrek::test
