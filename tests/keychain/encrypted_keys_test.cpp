// Keychains whose keys are stored under the password, and what unlocking leaves behind.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "host/files.h"
#include "keychain/identities.h"
#include "keychain/item_files.h"
#include "keychain/key_files.h"
#include "keychain/locations.h"
#include "keychain/removal.h"
#include "keychain/settings.h"
#include "keychain/unlocking.h"
#include "tests/support/matchers.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::keychain {
namespace {

class EncryptedKeys : public testing::Test {
 protected:
  EncryptedKeys() {
    createDirectories(folder_.file("run"));
    EXPECT_EQ(createKeychain(path_, "pw", &error_, true), CreateResult::kCreated) << error_.text();
    EXPECT_TRUE(add(id_)) << error_.text();
  }
  bool add(const test::IdentityFiles& files) {
    Items items;
    readItems(test::contentsOf(files.certificate), {}, &items);
    readItems(test::contentsOf(files.key), {}, &items);
    Keychain::Added added;
    auto keychain = Keychain::open(path_);
    return keychain && keychain->add(items, &added, &error_);
  }
  Lookup lookup() {
    const auto keychain = Keychain::open(path_);
    const LookupResult result = findSigningIdentity({*keychain}, "*");
    detail_ = result.detail;
    return result.outcome;
  }
  // The file of the keychain with this ending.
  std::string fileOf(const std::string& ending) const {
    const auto names = listDirectory(path_);
    for (const auto& name : names.value_or(std::vector<std::string>())) {
      if (name.ends_with(ending)) return path_ + "/" + name;
    }
    return "";
  }
  std::string passwordFile() const {
    const auto names = listDirectory(folder_.file("run/tovrek"));
    return names && names->size() == 1 ? folder_.file("run/tovrek/" + names->front()) : "";
  }

  test::TemporaryFolder folder_;
  test::ScopedEnvironment run_{"XDG_RUNTIME_DIR", folder_.file("run")};
  test::ScopedEnvironment data_{"XDG_DATA_HOME", folder_.file("data")};
  test::IdentityFiles id_ = test::makeIdentity(folder_, "id");
  std::string path_ = folder_.file("kc");
  ErrorText error_;
  std::string detail_;
};

TEST_F(EncryptedKeys, OpensslReadsThemWithThePassword) {
  const std::string file = fileOf(".key");
  EXPECT_EQ(fileMode(file), 0600u);
  EXPECT_THAT(
      test::runOpenssl({"asn1parse", "-in", file}),
      testing::AllOf(HasSubstr(":PBES2"), HasSubstr(":hmacWithSHA256"), HasSubstr(":aes-256-cbc")));
  EXPECT_EQ(test::runOpenssl({"pkey", "-in", file, "-passin", "pass:pw"}),
            test::contentsOf(id_.key));
}

TEST_F(EncryptedKeys, UsableWhileUnlocked) {
  EXPECT_EQ(lookup(), Lookup::kFound);  // a new keychain is unlocked
  EXPECT_EQ(fileMode(folder_.file("run/tovrek")), 0700u);
  EXPECT_EQ(fileMode(passwordFile()), 0600u);
  forgetPassword(path_);
  EXPECT_EQ(lookup(), Lookup::kKeyNotUsable);
  EXPECT_THAT(detail_, HasSubstr("The keychain " + path_ + " is locked"));
  EXPECT_FALSE(add(test::makeIdentity(folder_, "other")));
  EXPECT_EQ(error_.text(), "The keychain is locked.");

  for (const auto& [given, outcome] :
       {std::pair("pw", Lookup::kFound), std::pair("no", Lookup::kKeyNotUsable)}) {
    const test::ScopedEnvironment password("TOVREK_KEYCHAIN_PASSWORD", given);
    EXPECT_EQ(lookup(), outcome) << given;
  }
  ASSERT_TRUE(rememberPassword(path_, "no", &error_));
  EXPECT_EQ(lookup(), Lookup::kKeyNotUsable);
  EXPECT_THAT(detail_, HasSubstr("the password does not fit"));
  ASSERT_TRUE(rememberPassword(path_, "pw", &error_));
  EXPECT_EQ(lookup(), Lookup::kFound);
  forgetAllPasswords();
  EXPECT_FALSE(fileExists(folder_.file("run/tovrek")));
  EXPECT_EQ(lookup(), Lookup::kKeyNotUsable);
}

TEST_F(EncryptedKeys, LocksAfterTheTimeout) {
  const struct {
    std::optional<int> timeout;
    int secondsUnused;
    Lookup outcome;
  } cases[] = {
      {std::nullopt, 1000000, Lookup::kFound},
      {3600, 3000, Lookup::kFound},
      {3600, 0, Lookup::kFound},
      {3600, 4000, Lookup::kKeyNotUsable},
      {3600, 3000, Lookup::kKeyNotUsable},  // locked stays locked
  };
  for (const auto& c : cases) {
    ASSERT_TRUE(writeSettings(path_, {true, false, c.timeout}, &error_));
    const std::string file = passwordFile();
    if (!file.empty()) {
      const time_t then = ::time(nullptr) - c.secondsUnused;
      const struct timespec times[] = {{then, 0}, {then, 0}};
      ASSERT_EQ(::utimensat(AT_FDCWD, file.c_str(), times, 0), 0);
    }
    EXPECT_EQ(lookup(), c.outcome) << c.secondsUnused;
    // Each use counts anew.
    struct stat info {};
    if (c.outcome == Lookup::kFound) {
      ASSERT_EQ(::stat(file.c_str(), &info), 0);
      EXPECT_LT(::time(nullptr) - info.st_mtime, 600);
    }
  }
  EXPECT_EQ(passwordFile(), "");
}

// Somebody else could have made the folder first, to read what is put there.
TEST_F(EncryptedKeys, FoldersThatOthersCanEnterAreNotUsed) {
  ASSERT_EQ(::chmod(folder_.file("run/tovrek").c_str(), 0755), 0);
  EXPECT_EQ(lookup(), Lookup::kKeyNotUsable);
  EXPECT_FALSE(rememberPassword(path_, "pw", &error_));
  EXPECT_THAT(error_.text(), HasSubstr("is not a folder of this user alone"));
  EXPECT_EQ(createKeychain(folder_.file("second"), "pw", &error_, true), CreateResult::kFailed);
  EXPECT_FALSE(fileExists(folder_.file("second")));
  removeItem(folder_.file("run/tovrek"));
  ASSERT_EQ(::symlink("/tmp", folder_.file("run/tovrek").c_str()), 0);
  EXPECT_FALSE(rememberPassword(path_, "pw", &error_));
}

TEST_F(EncryptedKeys, PasswordIsChangedForAllKeysOrNone) {
  ASSERT_TRUE(changePassword(path_, "pw", "new", &error_)) << error_.text();
  EXPECT_EQ(lookup(), Lookup::kFound);
  EXPECT_TRUE(checkPassword(path_, "new"));
  EXPECT_FALSE(checkPassword(path_, "pw"));
  test::runOpenssl({"pkey", "-in", fileOf(".key"), "-passin", "pass:new", "-noout"});

  // A key under a third password, named as ours are.
  const std::string foreign = path_ + "/" + std::string(40, 'f') + ".key";
  test::runOpenssl({"pkcs8", "-topk8", "-in", id_.key, "-out", foreign, "-passout", "pass:third"});
  const std::string before = test::contentsOf(fileOf(".key"));
  EXPECT_FALSE(changePassword(path_, "new", "newer", &error_));
  EXPECT_THAT(error_.text(), HasSubstr("the password does not fit"));
  EXPECT_EQ(test::contentsOf(fileOf(".key")), before);
  EXPECT_TRUE(checkPassword(path_, "new"));
}

TEST_F(EncryptedKeys, DeletingAKeychainForgetsItsPassword) {
  EXPECT_NE(passwordFile(), "");
  ASSERT_TRUE(deleteKeychain(path_, &error_)) << error_.text();
  EXPECT_EQ(passwordFile(), "");
}

TEST_F(EncryptedKeys, RemovalOfSingleItems) {
  const Certificate leaf = *Certificate::fromDer(test::derOf(id_.certificate));
  const std::string mixed =
      folder_.write("kc/mixed.pem", test::contentsOf(id_.certificate) + test::contentsOf(id_.key));
  const auto count = [&] { return listDirectory(path_)->size(); };
  const size_t all = count();
  EXPECT_FALSE(removeFromKeychain(path_, leaf, false, &error_));
  EXPECT_EQ(error_.text(), mixed + " holds other items too.");
  EXPECT_EQ(count(), all);
  EXPECT_TRUE(removeFromKeychain(path_, leaf, true, &error_));
  EXPECT_EQ(count(), all - 3);
  EXPECT_EQ(lookup(), Lookup::kNotFound);
}

TEST(KeychainSettings, SurviveDamage) {
  const test::TemporaryFolder folder;
  const Settings all = {true, true, 21600};
  ASSERT_TRUE(writeSettings(folder.path(), all, nullptr));
  EXPECT_EQ(readSettings(folder.path()), all);
  const struct {
    const char* text;
    Settings expected;
  } cases[] = {
      {"", {}},
      {"timeout", {}},
      {"timeout x encrypted", {}},
      {"timeout -5\nencrypted\n", {true, false, {}}},
      {"timeout 99999999999999", {}},
      {"other words lock-on-sleep", {false, true, {}}},
  };
  for (const auto& c : cases) {
    folder.write(".settings", c.text);
    EXPECT_EQ(readSettings(folder.path()), c.expected) << c.text;
  }
}

}  // namespace
}  // namespace tovrek::keychain
