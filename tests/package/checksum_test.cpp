// Checksums over bundles, digests and the package key.
#include "package/checksum.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <set>

#include "package/package_key.h"
#include "tests/package/package_testing.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

std::string checksum(const std::string& directory) {
  Digest data(DigestAlgorithm::kSha256);
  LookForRecursiveFileWith(directory, data, test::LogCapture().logger());
  return CalulateSHA2StringFromData(data);
}

std::string sha(const std::string& text) {
  return CalulateSHA2StringFromData(text);
}

TEST(Digests, PrintAsTheServerKnowsThem) {
  EXPECT_EQ(CalulateMD5StringFromData("abc"), "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(sha("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(BundleChecksum, HashesContentsInOrderOfNames) {
  test::TemporaryFolder folder;
  folder.write("A.app/sub/z", "4");
  folder.write("A.app/b", "2");
  folder.write("A.app/a/y", "1");
  folder.write("A.app/large", std::string(1000000, '3'));
  folder.write("A.app/ORVANE.PLIST", "changes later");
  folder.write("A.app/deep/my-orvane.plist.bak", "changes later");
  std::filesystem::create_directories(folder.file("A.app/empty"));
  EXPECT_EQ(checksum(folder.file("A.app")), sha("12" + std::string(1000000, '3') + "4"));

  folder.write("B.app/Orvane.plist", "settings");
  EXPECT_EQ(checksum(folder.file("B.app")), sha(""));
  EXPECT_EQ(checksum(folder.file("none")), sha(""));
}

TEST(BundleChecksum, ReadsNothingOutsideAndNothingEndless) {
  test::TemporaryFolder folder;
  folder.write("A.app/a", "1");
  const std::string app = folder.file("A.app");
  folder.write("secret", "host");
  std::filesystem::create_symlink("a", app + "/b-inside");
  std::filesystem::create_symlink("../secret", app + "/c-outside");
  std::filesystem::create_symlink("/dev/zero", app + "/d-device");
  std::filesystem::create_symlink("nowhere", app + "/e-dangling");
  std::filesystem::create_directory_symlink("..", app + "/f-folder");
  ASSERT_EQ(::mkfifo((app + "/g-pipe").c_str(), 0600), 0);
  EXPECT_EQ(checksum(app), sha("11"));
}

class WorkingDirectory {
 public:
  explicit WorkingDirectory(const std::string& path) { std::filesystem::current_path(path); }
  ~WorkingDirectory() { std::filesystem::current_path(old_); }

 private:
  std::filesystem::path old_ = std::filesystem::current_path();
};

TEST(BundleChecksum, AddsFoldersOfTheSameNameInTheWorkingDirectory) {
  test::TemporaryFolder folder;
  folder.write("A.app/a/x", "1");
  folder.write("here/a/x", "2");
  const WorkingDirectory here(folder.file("here"));
  EXPECT_EQ(checksum(folder.file("A.app")), sha("21"));
  // A name that leads back to itself ends.
  folder.write("here/a/a/x", "3");
  EXPECT_EQ(checksum(folder.file("A.app")), sha("321"));
}

TEST(PackageKey, DiffersOnEveryRun) {
  test::TemporaryFolder folder;
  folder.write("A.app/Info.plist", "plist");
  folder.write("A.app/A", "binary");
  test::LogCapture log;
  std::set<std::string> keys;
  for (const char* app : {"A.app", "A.app", "missing.app"}) {
    const std::optional<std::string> key = GeneratePrivateKey(folder.file(app), log.logger());
    ASSERT_TRUE(key);
    EXPECT_THAT(*key, MatchesRegex("[0-9a-f]{64}"));
    keys.insert(*key);
  }
  EXPECT_EQ(keys.size(), 3U);
  EXPECT_NE(GenerateUUID(), GenerateUUID());
}

TEST(MacAddress, HasSixBytes) {
  test::LogCapture log;
  ErrorText error;
  const std::optional<std::string> address = getMacAddress(&error, log.logger());
  if (address) {
    EXPECT_THAT(*address, MatchesRegex("([0-9A-F]{2}:){5}[0-9A-F]{2}"));
    EXPECT_TRUE(log.holds("Mac Address: " + *address));
  } else {
    EXPECT_EQ(error.text(), "if_nametoindex failure");
  }
}

}  // namespace
}  // namespace tovrek
