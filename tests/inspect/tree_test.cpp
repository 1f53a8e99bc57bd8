// Trees of archives: what may be read of them, and that judges see in them what they would see on
// the disk.
#include <gmock/gmock.h>

#include <filesystem>

#include "host/bytes.h"
#include "host/process.h"
#include "inspect/TreeSource.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::inspect {
namespace {

using ::testing::IsEmpty;

// Files that claim a size and hold nothing.
class ClaimingTree : public Tree {
 public:
  ClaimingTree(size_t count, uint64_t size) {
    for (size_t i = 0; i < count; ++i) {
      items_.push_back({.path = "A.app/" + std::to_string(i), .size = size, .index = i});
    }
    finish();
  }
  bool isPacked() const override { return true; }

 protected:
  std::optional<Contents> contentsOf(const Item&, ErrorText*) const override { return Contents(); }
};

TEST(Trees, ReadNoMoreThanTheyMay) {
  const ClaimingTree large(1, kLargestItem + 1);
  ErrorText reason;
  EXPECT_FALSE(large.read(large.items()[0], kLargestItem, &reason));
  EXPECT_EQ(reason.text(), "it has 1073741825 bytes, and 1073741824 are read at most");

  const size_t most = kMostUnpacked / kLargestItem;
  const ClaimingTree many(most + 1, kLargestItem);
  std::vector<std::string> told;
  many.readTheRest([&](const Tree::Item&, const std::string& why) { told.push_back(why); });
  EXPECT_THAT(told, testing::ElementsAre("the archive unpacks to more than 17179869184 bytes"));
  // What was kept costs nothing again; all else does.
  const ClaimingTree one(1, kLargestItem);
  for (size_t i = 0; i < 2 * most; ++i) EXPECT_TRUE(one.readAndKeep(one.items()[0])) << i;
  for (size_t i = 1; i < most; ++i) EXPECT_TRUE(one.read(one.items()[0])) << i;
  EXPECT_FALSE(one.read(one.items()[0]));
}

// One app on the disk, and the same packed.
class Sources : public ::testing::Test {
 protected:
  void SetUp() override {
    folder_.write("Payload/A.app/Info.plist", "info");
    folder_.write("Payload/A.app/a-b/c", "c");
    folder_.write("Payload/A.app/a/deep/file", "file");
    folder_.write("Payload/A.app/a.b", "ab");
    for (const auto& [name, target] :
         std::initializer_list<std::pair<const char*, const char*>>{{"link", "a/deep"},
                                                                    {"a/up", "../link/file"},
                                                                    {"loop", "loop"},
                                                                    {"out", "../../beyond"},
                                                                    {"absolute", "/etc"},
                                                                    {"gone", "nothing"},
                                                                    {"dotted", "./a/../a.b"},
                                                                    {"through", "a.b/file"}}) {
      std::filesystem::create_symlink(target, folder_.file("Payload/A.app/" + std::string(name)));
    }
    Command command{.argv = {"zip", "-qry", "a.ipa", "Payload"},
                    .workingDirectory = folder_.path()};
    ASSERT_EQ(runQuietly(command).status, 0);
    ErrorText reason;
    tree_ = openArchive(folder_.file("a.ipa"), &reason);
    ASSERT_TRUE(tree_) << reason.text();
  }
  // Everything that a source tells of a path.
  static std::string told(const signing::FileSource& source, const std::string& root,
                          const std::string& path) {
    const std::string whole = root + path;
    const auto kind = [](const std::optional<ItemKind>& each) {
      return each ? std::to_string(static_cast<int>(*each)) : "-";
    };
    const auto real = source.realPath(whole);
    std::string text = real ? real->substr(root.size()) : "-", contents, pieces;
    text += " " + kind(source.kindAt(whole)) + kind(source.kindBehind(whole));
    text += " " + source.linkTarget(whole).value_or("-");
    if (source.kindBehind(whole) == ItemKind::kDirectory) return text;
    text += source.read(whole, &contents) ? " " + contents : " unreadable";
    text += source.read(whole, &contents, 1) ? " short" : " long";
    const auto mapped = source.map(whole, nullptr);
    if (mapped) text.append(" ").append(asText(mapped->bytes));
    char room[2];
    const auto take = [&](std::string_view piece) { pieces += piece; };
    const bool isWhole = source.folder(root)->readPieces(path, room, take);
    return text + (isWhole ? " " + pieces : "");
  }
  static std::vector<std::string> walked(const signing::FileSource& source, const std::string& root,
                                         const std::string& skipped) {
    std::vector<std::string> items;
    const auto visit = [&](const WalkedItem& item) {
      items.push_back(item.relativePath + " " + std::to_string(static_cast<int>(item.kind)));
      return item.relativePath != skipped;
    };
    if (!source.walk(root, visit, nullptr)) items.emplace_back("failed");
    std::ranges::sort(items);
    return items;
  }

  const test::TemporaryFolder folder_;
  std::unique_ptr<Tree> tree_;
};

TEST_F(Sources, AgreeWithTheDisk) {
  const TreeSource packed(*tree_, "Payload");
  const auto& disk = signing::FileSource::disk();
  const std::string onDisk = *disk.realPath(folder_.file("Payload")) + "/";
  for (const char* path : {"A.app", "A.app/Info.plist", "A.app/a", "A.app/a/deep/../deep/file",
                           "A.app/link", "A.app/link/file", "A.app/a/up", "A.app/loop", "A.app/out",
                           "A.app/absolute/none", "A.app/gone", "A.app/dotted", "A.app/through",
                           "A.app/a.b/file", "A.app/none", "A.app//a/./deep"}) {
    EXPECT_EQ(told(packed, "", path), told(disk, onDisk, path)) << path;
  }
  // Links of this kind lead to what is there on the disk, and nowhere in an archive.
  EXPECT_EQ(packed.realPath("A.app/absolute"), std::nullopt);
  EXPECT_EQ(packed.kindBehind("../a.ipa"), std::nullopt);
  // A path of a seal, which no system would take; to go through it would take for ever.
  std::string endless = "A.app/";
  for (size_t i = 0; i < size_t{8} << 20; ++i) endless += "./";
  for (const signing::FileSource* source :
       {static_cast<const signing::FileSource*>(&packed), &disk}) {
    EXPECT_EQ(source->kindBehind(endless + "a"), std::nullopt);
    EXPECT_EQ(source->realPath(endless + "a"), std::nullopt);
  }
  for (const char* skipped : {"", "a", "a/deep", "a-b"}) {
    EXPECT_EQ(walked(packed, "A.app", skipped), walked(disk, onDisk + "A.app", skipped)) << skipped;
  }
  EXPECT_THAT(walked(packed, "B.app", ""), testing::ElementsAre("failed"));
}

}  // namespace
}  // namespace tovrek::inspect
