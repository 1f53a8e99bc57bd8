#include "keychain/Keychain.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "host/files.h"
#include "keychain/item_files.h"
#include "keychain/locations.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::keychain {
namespace {

using test::makeIdentity;
using test::makePkcs12;
using test::modeOf;

Items itemsOf(const std::vector<std::string>& paths) {
  Items items;
  for (const std::string& path : paths) {
    EXPECT_EQ(readItems(test::contentsOf(path), {}, &items), ReadResult::kRead) << path;
  }
  return items;
}

class KeychainTest : public testing::Test {
 protected:
  Keychain created() {
    const std::string path = folder_.file("kc");
    EXPECT_EQ(createKeychain(path, "pw", nullptr), CreateResult::kCreated);
    auto opened = Keychain::open(path);
    EXPECT_TRUE(opened);
    return opened.value_or(Keychain());
  }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment data_{"XDG_DATA_HOME", folder_.file("data")};
  test::IdentityFiles id_ = makeIdentity(folder_, "id");
};

TEST_F(KeychainTest, AddedItemsAreFoundAgainAndKeysAreSecret) {
  Keychain keychain = created();
  Keychain::Added added;
  ErrorText error;
  ASSERT_TRUE(keychain.add(itemsOf({id_.certificate, id_.key}), &added, &error)) << error.text();
  EXPECT_EQ(added.identities, 1);
  EXPECT_EQ(added.keys + added.certificates + added.duplicates, 0);

  const auto again = Keychain::open(keychain.path());
  ASSERT_TRUE(again);
  ASSERT_EQ(again->identities().size(), 1u);
  EXPECT_EQ(again->identities()[0].leaf.der(), test::derOf(id_.certificate));
  EXPECT_EQ(modeOf(keychain.path()), 0700u);
  const std::string key = keychain.path() + "/" + publicKeyId(again->keys()[0]) + ".key";
  EXPECT_EQ(modeOf(key), 0600u);
}

TEST_F(KeychainTest, CountsWhatIsNew) {
  Keychain keychain = created();
  test::IdentityRequest renewed;
  renewed.existingKey = id_.key;
  const auto renewal = makeIdentity(folder_, "renewed", renewed);
  const auto other = makeIdentity(folder_, "other");
  const struct {
    std::vector<std::string> paths;
    int identities, keys, certificates, duplicates;
  } steps[] = {
      {{id_.certificate}, 0, 0, 1, 0},
      {{id_.certificate}, 0, 0, 0, 1},
      {{id_.certificate, id_.key}, 1, 0, 0, 1},  // the key makes the pair new
      {{id_.certificate, id_.key}, 0, 0, 0, 2},
      {{id_.key, renewal.certificate}, 1, 0, 0, 1},  // so does a renewed certificate
      {{other.key, other.key}, 0, 1, 0, 0},
      {{other.certificate}, 0, 0, 1, 0},
  };
  for (size_t i = 0; i < std::size(steps); ++i) {
    SCOPED_TRACE(i);
    Keychain::Added added;
    ASSERT_TRUE(keychain.add(itemsOf(steps[i].paths), &added, nullptr));
    EXPECT_EQ(added.identities, steps[i].identities);
    EXPECT_EQ(added.keys, steps[i].keys);
    EXPECT_EQ(added.certificates, steps[i].certificates);
    EXPECT_EQ(added.duplicates, steps[i].duplicates);
  }
  EXPECT_EQ(keychain.identities().size(), 3u);
}

TEST_F(KeychainTest, FolderFilledByHand) {
  const std::string path = folder_.file("mine");
  folder_.write("mine/a.pem", test::contentsOf(id_.key) + test::contentsOf(id_.certificate));
  folder_.write("mine/b.CER", test::derOf(id_.certificate));  // the same certificate again
  folder_.write("mine/broken.p12", "no");
  folder_.write("mine/readme.txt", test::contentsOf(makeIdentity(folder_, "x").certificate));
  createDirectories(path + "/folder.pem");
  const auto keychain = Keychain::open(path);
  ASSERT_TRUE(keychain);
  EXPECT_EQ(keychain->certificates().size(), 1u);
  EXPECT_EQ(keychain->identities().size(), 1u);
  EXPECT_TRUE(keychain->unreadable().empty());

  // What cannot be read is not passed over in silence.
  const std::string loop = folder_.file("mine/loop.cer");
  ASSERT_EQ(::symlink(loop.c_str(), loop.c_str()), 0);
  const auto again = Keychain::open(path);
  ASSERT_TRUE(again);
  EXPECT_EQ(again->unreadable(),
            std::vector<std::string>{loop + ": Too many levels of symbolic links"});
  EXPECT_EQ(again->certificates().size(), 1u);
}

TEST_F(KeychainTest, SingleFiles) {
  const std::string locked = makePkcs12(folder_, "locked", id_, "secret");
  ErrorText error;
  EXPECT_FALSE(Keychain::open(locked, &error));
  EXPECT_THAT(error.text(), testing::HasSubstr("TOVREK_KEYCHAIN_PASSWORD"));
  {
    const test::ScopedEnvironment wrong("TOVREK_KEYCHAIN_PASSWORD", "no");
    EXPECT_FALSE(Keychain::open(locked));
  }
  const test::ScopedEnvironment right("TOVREK_KEYCHAIN_PASSWORD", "secret");
  auto keychain = Keychain::open(locked);
  ASSERT_TRUE(keychain);
  EXPECT_EQ(keychain->identities().size(), 1u);

  Keychain::Added added;
  const auto other = makeIdentity(folder_, "o");
  EXPECT_FALSE(keychain->add(itemsOf({other.certificate}), &added, &error));
  EXPECT_EQ(error.text(), "The keychain is a single file.");

  EXPECT_FALSE(Keychain::open(folder_.write("notes.pem", "nothing"), &error));
  EXPECT_EQ(error.text(), "The file holds neither a certificate nor a private key.");
  EXPECT_FALSE(Keychain::open(folder_.file("missing.p12"), &error));
  EXPECT_EQ(error.text(), "No such file or directory");
}

TEST_F(KeychainTest, PasswordsOfFoldersAndFiles) {
  const Keychain keychain = created();
  const std::string file = makePkcs12(folder_, "m", id_, "pw");
  for (const std::string& path : {keychain.path(), file}) {
    EXPECT_TRUE(checkPassword(path, "pw")) << path;
    EXPECT_FALSE(checkPassword(path, "PW")) << path;
    EXPECT_FALSE(checkPassword(path, "")) << path;
  }
  EXPECT_EQ(test::contentsOf(keychain.path() + "/.password").find("pw "), std::string::npos);
  for (const char* record : {"", "pbkdf2-sha256", "pbkdf2-sha256 0 a b", "md5 1 a b",
                             "pbkdf2-sha256 99999999999 a b", "pbkdf2-sha256 2000000000 a b"}) {
    folder_.write("kc/.password", record);
    EXPECT_FALSE(checkPassword(keychain.path(), "pw")) << record;
  }
  const std::string open = folder_.file("open");
  EXPECT_EQ(createKeychain(open, std::nullopt, nullptr), CreateResult::kCreated);
  EXPECT_TRUE(checkPassword(open, "anything"));
}

TEST_F(KeychainTest, DeletingTakesNothingButAKeychain) {
  ErrorText error;
  Keychain keychain = created();
  Keychain::Added added;
  ASSERT_TRUE(keychain.add(itemsOf({id_.certificate, id_.key}), &added, &error));
  folder_.write("kc/notes.txt", "mine");
  EXPECT_FALSE(deleteKeychain(keychain.path(), &error));
  EXPECT_EQ(error.text(), "The folder holds other items too.");
  EXPECT_EQ(listDirectory(keychain.path())->size(), 4u);

  const std::string text = folder_.write("letter.txt", "dear");
  EXPECT_FALSE(deleteKeychain(text, &error));
  EXPECT_TRUE(fileExists(text));

  removeItem(folder_.file("kc/notes.txt"));
  ASSERT_TRUE(setSearchList({keychain.path(), "/elsewhere"}, &error));
  ASSERT_TRUE(setDefaultKeychain(keychain.path(), &error));
  EXPECT_TRUE(deleteKeychain(keychain.path(), &error)) << error.text();
  EXPECT_FALSE(fileExists(keychain.path()));
  EXPECT_EQ(searchList(), std::vector<std::string>{"/elsewhere"});
  EXPECT_EQ(keychain::defaultKeychain(), dataFolder() + "/keychain");
}

TEST_F(KeychainTest, NamesAndPaths) {
  const std::string data = folder_.file("data/tovrek");
  createDirectories(folder_.file("ci/build.keychain-db"));
  createDirectories(folder_.file("ci/build"));
  const struct {
    std::string given, expected;
  } cases[] = {
      {"build", data + "/build.keychain"},
      {"build.keychain", data + "/build.keychain"},
      {"build.keychain-db", data + "/build.keychain"},
      {"login.keychain", data + "/keychain"},
      {"login.keychain-db", data + "/keychain"},
      {".keychain", data + "/.keychain.keychain"},
      {"/nowhere/Library/Keychains/build.keychain-db", data + "/build.keychain"},
      {"/nowhere/Library/Keychains/login.keychain", data + "/keychain"},
      {"/nowhere/else/build.keychain", "/nowhere/else/build.keychain"},
      {folder_.file("ci/build.keychain"), folder_.file("ci/build.keychain-db")},
      {folder_.file("ci/./build.keychain-db/"), folder_.file("ci/build.keychain-db")},
      {folder_.file("ci/new.keychain"), folder_.file("ci/new.keychain")},
  };
  for (const auto& c : cases) EXPECT_EQ(resolveKeychain(c.given), c.expected) << c.given;
  // With the suffix missing too; a folder of exactly that name comes first.
  EXPECT_EQ(resolveKeychain(folder_.file("ci/build")), folder_.file("ci/build"));
  removeItem(folder_.file("ci/build"));
  EXPECT_EQ(resolveKeychain(folder_.file("ci/build")), folder_.file("ci/build.keychain-db"));
}

}  // namespace
}  // namespace tovrek::keychain
