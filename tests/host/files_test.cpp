#include "host/files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>

#include "host/AtomicFile.h"
#include "host/EditedFile.h"
#include "host/InputFile.h"
#include "host/MappedFile.h"
#include "host/scratch.h"
#include "host/unique_fd.h"
#include "tests/support/FewOpenFiles.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using test::contentsOf;
using test::modeOf;
using test::TemporaryFolder;

TEST(Files, WriteKeepsModeAndNeverWritesThroughLinks) {
  const TemporaryFolder folder;
  const std::string file = folder.write("plain", "old");
  ::chmod(file.c_str(), 0751);
  ASSERT_TRUE(writeFileAtomically(file, "new"));
  EXPECT_EQ(contentsOf(file), "new");
  EXPECT_EQ(modeOf(file), 0751u);
  ::chmod(file.c_str(), 06755);
  ASSERT_TRUE(writeFileAtomically(file, "new"));
  EXPECT_EQ(modeOf(file), 0755u) << "new contents never inherit set-id bits";

  const std::string link = folder.file("link");
  ASSERT_EQ(::symlink(file.c_str(), link.c_str()), 0);
  ASSERT_TRUE(writeFileAtomically(link, "elsewhere"));
  EXPECT_EQ(contentsOf(file), "new");
  EXPECT_FALSE(isSymbolicLink(link));
  EXPECT_EQ(listDirectory(folder.path())->size(), 2u) << "no temporary file is left";
}

TEST(Files, FailuresNameTheReason) {
  const TemporaryFolder folder;
  ErrorText error;
  EXPECT_FALSE(writeFileAtomically(folder.file("no/such/file"), "x", &error));
  EXPECT_EQ(error.text(), "No such file or directory");
  std::string contents;
  EXPECT_FALSE(readFile(folder.path(), &contents, &error));
  EXPECT_EQ(error.text(), "Is a directory");
  EXPECT_FALSE(listDirectory(folder.file("missing"), &error));
  EXPECT_FALSE(removeItem(folder.file("missing"), &error));
}

TEST(Files, ReadsFilesWithoutASize) {
  std::string contents;
  ASSERT_TRUE(readFile("/proc/self/status", &contents));
  EXPECT_NE(contents.find("Pid:"), std::string::npos);
}

TEST(Files, CopyKeepsLinksModesAndEmptyFolders) {
  const TemporaryFolder folder;
  const std::string from = folder.file("from");
  folder.write("from/sub/program", std::string(300000, 'p'));
  ::chmod(folder.file("from/sub/program").c_str(), 0755);
  ASSERT_TRUE(createDirectories(folder.file("from/empty")));
  ASSERT_EQ(::symlink("sub/program", folder.file("from/link").c_str()), 0);
  ASSERT_EQ(::symlink("nowhere", folder.file("from/dangling").c_str()), 0);
  ::chmod(folder.file("from/sub").c_str(), 0555);

  const std::string to = folder.file("to");
  ASSERT_TRUE(copyItem(from, to));
  EXPECT_EQ(contentsOf(to + "/sub/program"), std::string(300000, 'p'));
  EXPECT_EQ(modeOf(to + "/sub/program"), 0755u);
  EXPECT_EQ(modeOf(to + "/sub"), 0555u);
  EXPECT_TRUE(isDirectory(to + "/empty"));
  EXPECT_TRUE(isSymbolicLink(to + "/link"));
  EXPECT_TRUE(isSymbolicLink(to + "/dangling"));

  ErrorText error;
  EXPECT_FALSE(copyItem(from, to, &error)) << "never merges";
  EXPECT_EQ(error.text(), "File exists");
  EXPECT_FALSE(copyItem(from + "/link", to + "/dangling", &error)) << "a link is in the way too";
  ASSERT_TRUE(removeItem(to)) << "read-only folders go as well";
  EXPECT_FALSE(itemExistsNoFollow(to));
}

// Where a new file would get another group or access list than the old one has, it is made anew.
TEST(Files, HandingOverMovesOnlyWhatComesToTheSame) {
  const TemporaryFolder folder;
  createDirectories(folder.file("plain"));
  createDirectories(folder.file("shared"));
  ::chmod(folder.file("shared").c_str(), 02755);
  for (const auto& [target, moved] : {std::pair("plain", true), std::pair("shared", false)}) {
    const std::string from = folder.write("from", "contents");
    const std::string to = folder.file(std::string(target) + "/to");
    ASSERT_TRUE(handOverItem(from, to)) << target;
    EXPECT_EQ(contentsOf(to), "contents");
    EXPECT_EQ(itemExistsNoFollow(from), !moved) << target;
    ErrorText error;
    EXPECT_FALSE(handOverItem(folder.write("next", "other"), to, &error));
    EXPECT_EQ(error.text(), "File exists");
    EXPECT_EQ(contentsOf(to), "contents");
  }
}

TEST(Files, ScratchFilesAreThoseInTheAnnouncedFolder) {
  const TemporaryFolder folder;
  const test::ScopedEnvironment scratch("TOVREK_SCRATCH", "");
  EXPECT_FALSE(isScratchFile(folder.file("run/file")));
  folder.write("run/file", "");
  ASSERT_EQ(::symlink("run", folder.file("link").c_str()), 0);
  announceScratchFolder(folder.file("link"));
  for (const char* inside : {"link/file", "run/file", "run/deep/file"}) {
    EXPECT_TRUE(isScratchFile(folder.file(inside))) << inside;
  }
  for (const char* outside : {"run", "runs/file", "file"}) {
    EXPECT_FALSE(isScratchFile(folder.file(outside))) << outside;
  }
}

TEST(Files, RemoveTakesTheLinkAndNotItsTarget) {
  const TemporaryFolder folder;
  folder.write("target/file", "x");
  ASSERT_EQ(::symlink(folder.file("target").c_str(), folder.file("link").c_str()), 0);
  ASSERT_TRUE(removeItem(folder.file("link")));
  EXPECT_TRUE(fileExists(folder.file("target/file")));
}

TEST(Files, WalkIsSortedAndFollowsNoLinks) {
  const TemporaryFolder folder;
  for (const char* name : {"b/2", "b/1", "a", "B", "c.framework/x"}) folder.write(name, "");
  ASSERT_EQ(::symlink("b", folder.file("d").c_str()), 0);
  std::vector<std::string> seen;
  ASSERT_TRUE(walkDirectory(folder.path(), [&](const WalkedItem& item) {
    seen.push_back(item.relativePath);
    return item.relativePath != "c.framework";
  }));
  EXPECT_EQ(seen, (std::vector<std::string>{"B", "a", "b", "b/1", "b/2", "c.framework", "d"}));
  EXPECT_FALSE(walkDirectory(folder.file("missing"), [](const WalkedItem&) { return true; }));
}

TEST(Files, OnlyAWholeWalkIsOne) {
  const TemporaryFolder folder;
  folder.write("a/b/c/d/e/file", "");
  const auto all = [](const WalkedItem&) { return true; };
  ErrorText error;
  EXPECT_FALSE(walkDirectory(folder.file("none"), all, &error));
  EXPECT_EQ(error.text(), folder.file("none") + ": No such file or directory");
  EXPECT_TRUE(walkDirectoryIfThere(folder.file("none"), all));
  EXPECT_TRUE(walkDirectoryIfThere(folder.file("a/b/c/d/e/file"), all));

  // Refuses to open folders at some depth, for root as well.
  {
    const test::FewOpenFiles few(3);
    EXPECT_FALSE(walkDirectory(folder.path(), all, &error));
    EXPECT_FALSE(walkDirectoryIfThere(folder.path(), all));
  }
  EXPECT_EQ(error.text(), folder.file("a/b") + ": Too many open files");

  // Two folders and what lists one of them are all that a removal has to have open.
  for (const rlim_t open : {rlim_t{4}, rlim_t{3}}) {
    folder.write("a/b/c/d/e/file", "");
    const test::FewOpenFiles few(open);
    EXPECT_TRUE(removeItem(folder.file("a"), &error)) << error.text();
    EXPECT_FALSE(itemExistsNoFollow(folder.file("a")));
  }
}

TEST(Files, TreesDeeperThanAnyPathAreWalkedAndRemoved) {
  const TemporaryFolder folder;
  constexpr int kLevels = 300;
  const std::string name(60, 'x');
  ASSERT_TRUE(createPrivateDirectory(folder.file("tree")));
  UniqueFd here(::open(folder.file("tree").c_str(), O_RDONLY | O_DIRECTORY));
  for (int i = 0; i < kLevels; ++i) {
    ASSERT_EQ(::mkdirat(here.get(), name.c_str(), 0700), 0);
    here = UniqueFd(::openat(here.get(), name.c_str(), O_RDONLY | O_DIRECTORY));
    const UniqueFd file(::openat(here.get(), "file", O_WRONLY | O_CREAT, 0600));
    ASSERT_TRUE(file.valid());
  }
  int items = 0;
  EXPECT_TRUE(walkDirectory(folder.file("tree"), [&](const WalkedItem&) { return ++items > 0; }));
  EXPECT_EQ(items, 2 * kLevels);
  ErrorText error;
  EXPECT_TRUE(removeItem(folder.file("tree"), &error)) << error.text();
  EXPECT_FALSE(itemExistsNoFollow(folder.file("tree")));
}

TEST(Files, AppendNeedsTheFile) {
  const TemporaryFolder folder;
  EXPECT_FALSE(appendToFile(folder.file("log"), "x"));
  folder.write("log", "a\n");
  EXPECT_TRUE(appendToFile(folder.file("log"), "b\n"));
  EXPECT_EQ(contentsOf(folder.file("log")), "a\nb\n");
}

TEST(MappedFile, EmptyFilesAndFolders) {
  const TemporaryFolder folder;
  MappedFile map;
  EXPECT_TRUE(map.open(folder.write("empty", "")));
  EXPECT_TRUE(map.bytes().empty());
  EXPECT_TRUE(map.open(folder.write("three", "abc")));
  EXPECT_EQ(map.bytes().size(), 3u);
  ErrorText error;
  EXPECT_FALSE(map.open(folder.path(), &error));
  EXPECT_EQ(error.text(), "Is a directory");
}

// An app could bring a pipe, which would block, or a device, which would never end.
TEST(InputFile, TellsRegularFilesFromOthers) {
  const TemporaryFolder folder;
  ASSERT_EQ(::mkfifo(folder.file("pipe").c_str(), 0600), 0);
  ASSERT_EQ(::symlink("/dev/zero", folder.file("link").c_str()), 0);
  ErrorText error;
  for (const auto& [name, reason] :
       {std::pair("pipe", "Not a regular file"), std::pair("link", "Not a regular file"),
        std::pair(".", "Is a directory"), std::pair("none", "No such file or directory")}) {
    InputFile file;
    EXPECT_FALSE(file.openRegular(folder.file(name), &error) || file.isOpen()) << name;
    EXPECT_EQ(error.text(), reason) << name;
  }
  InputFile file;
  ASSERT_TRUE(file.openRegular(folder.write("plain", "abcdef")));
  std::array<std::byte, 9> room{};
  EXPECT_EQ(file.readAt(0, std::span(room).first(4)), 4U);
  EXPECT_EQ(file.readAt(0, room), 6U);
  std::array<char, 9> text{};
  EXPECT_EQ(file.read(text), 6U) << "goes on from the beginning";
  EXPECT_EQ(file.read(text), 0U);
}

TEST(AtomicFile, NewFilesReplaceNothing) {
  const TemporaryFolder folder;
  for (const bool taken : {true, false}) {
    const std::string path = folder.file(taken ? "taken" : "free");
    if (taken) folder.write("taken", "old");
    AtomicFile file;
    ErrorText error;
    ASSERT_TRUE(file.open(path) && file.write("ab", "cd") && file.writeAt(1, "X"));
    EXPECT_EQ(file.commitNew(0604, &error), !taken);
    EXPECT_EQ(error.text(), taken ? "File exists" : "");
    EXPECT_EQ(contentsOf(path), taken ? "old" : "aXcd");
  }
  EXPECT_EQ(modeOf(folder.file("free")), 0604U);
  EXPECT_EQ(listDirectory(folder.path())->size(), 2U) << "no temporary file is left";
}

TEST(EditedFile, WritesReachTheFileMappedOrNot) {
  const TemporaryFolder folder;
  const std::string path = folder.write("image", std::string(10000, 'a'));
  {
    EditedFile file;
    ASSERT_EQ(file.open(path), Mapped::kDone);
    file.bytes()[0] = std::byte{'b'};
    const std::string text = "unmapped";
    ASSERT_TRUE(file.writeUnmapped(5000, std::as_bytes(std::span(text))));
    EXPECT_FALSE(file.writeUnmapped(9999, std::as_bytes(std::span(text)))) << "never grows";
    EXPECT_EQ(file.bytes()[5000], std::byte{'u'});
    file.bytes()[1] = std::byte{'c'};
  }
  EXPECT_EQ(contentsOf(path), "bc" + std::string(4998, 'a') + "unmapped" + std::string(4992, 'a'));
  EXPECT_EQ(EditedFile().open(folder.write("empty", "")), Mapped::kMapFailed);
  EXPECT_EQ(EditedFile().open(folder.file("none")), Mapped::kOpenFailed);
}

TEST(Files, OnlyFilesAreReplacedAsAWhole) {
  const TemporaryFolder folder;
  ASSERT_TRUE(writeFileOrDevice(folder.file("plain"), "text"));
  EXPECT_EQ(contentsOf(folder.file("plain")), "text");
  ASSERT_EQ(::symlink("/dev/null", folder.file("link").c_str()), 0);
  ASSERT_TRUE(writeFileOrDevice(folder.file("link"), "text"));
  EXPECT_TRUE(isSymbolicLink(folder.file("link")));
}

}  // namespace
}  // namespace tovrek
