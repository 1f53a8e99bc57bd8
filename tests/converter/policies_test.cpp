#include "converter/policies.h"

#include <fmt/format.h>

#include "tests/converter/ConverterTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

std::string policies(const std::string& name) {
  return fmt::format(
      "<PolicyMetadata><Policies><Policy><PolicyName>{}</PolicyName><PolicyDefault>on"
      "</PolicyDefault></Policy></Policies></PolicyMetadata>",
      name);
}

class Policy : public ConverterTest {
 protected:
  Policy() {
    createDirectories(folder.file("package"));
    originalBundleID = "org.old";
    request.replacementBundleID = "org.new";
  }
  void content(const std::string& name) { write("Data/" + name, policies(name)); }
  bool place(const std::vector<std::string>& languages = {}) {
    error.clear();
    auto subject = run();
    subject.originalBundleID = originalBundleID;
    return copyPolicyXMLToDir(subject, folder.file("package"), app(), languages, &error);
  }
  // The content file that ended up in all three places.
  std::string placed() {
    EXPECT_TRUE(place()) << error.text();
    const std::string chosen = contentsOf(folder.file("package/policy_metadata.xml"));
    EXPECT_EQ(contentsOf(app() + "/policy_metadata.xml"), chosen);
    const size_t start = chosen.find("<PolicyName>") + 12;
    const std::string name = chosen.substr(start, chosen.find("</PolicyName>") - start);
    EXPECT_THAT(contentsOf(app() + "/default_wex_policies.xml"), HasSubstr("<" + name + ">on</"));
    return name;
  }

  std::optional<std::string> originalBundleID;
};

TEST_F(Policy, TheMostSpecificFileIsChosen) {
  const char* const kWrapped[] = {"policy_metadata.xml", "org.old_policy_metadata.xml",
                                  "org.new_policy_metadata.xml"};
  const char* const kNetworkOnly[] = {"mvpnonly_policy_metadata.xml",
                                      "org.old_mvpnonly_policy_metadata.xml",
                                      "org.new_mvpnonly_policy_metadata.xml"};
  // Each new file beats those before it; files of the other kind do not count.
  for (const bool networkOnly : {false, true}) {
    request.library = networkOnly ? LibraryKind::kNetworkOnly : LibraryKind::kFull;
    for (const char* name : networkOnly ? kNetworkOnly : kWrapped) {
      content(name);
      EXPECT_EQ(placed(), name);
    }
  }
}

TEST_F(Policy, NetworkOnlySdkApp) {
  content("policy_metadata.xml");
  content("mvpnonly_policy_metadata.xml");
  createDirectories(app() + "/Frameworks/WEXNetworkOnly.framework");
  EXPECT_EQ(placed(), "policy_metadata.xml");
  request.isSDK = true;
  EXPECT_EQ(placed(), "mvpnonly_policy_metadata.xml");
}

TEST_F(Policy, FileOfTheUser) {
  content("policy_metadata.xml");
  request.appSpecificPolicyFilepath = write("own.xml", policies("own"));
  EXPECT_EQ(placed(), "own");
  write("own.xml", "<PolicyMetadata>");
  EXPECT_FALSE(place());
  EXPECT_TRUE(error.isSet());
  write("own.xml", "<Other/>");
  EXPECT_FALSE(place());
  EXPECT_EQ(error.text(),
            "ERROR: Could not generate (default_wex_policies.xml) file, there was an "
            "issue parsing " +
                folder.file("own.xml") + " file.");
}

TEST_F(Policy, IdentifierIsNoPath) {
  content("policy_metadata.xml");
  write("secret_policy_metadata.xml", policies("secret"));
  request.replacementBundleID = "../secret";
  originalBundleID = "../secret";
  EXPECT_EQ(placed(), "policy_metadata.xml");
}

TEST_F(Policy, MissingFiles) {
  EXPECT_FALSE(place());
  EXPECT_THAT(error.text(), HasSubstr("Failed to copy file from " +
                                      folder.file("Data/policy_metadata.xml") + " to "));
  originalBundleID.reset();
  request.replacementBundleID.reset();
  EXPECT_FALSE(place());
  EXPECT_EQ(error.text(), "A required file at this location does not exist: _policy_metadata.xml");
}

TEST_F(Policy, LanguagesGoIntoThePackageOnly) {
  content("policy_metadata.xml");
  write("Data/strings-de.xml", "de");
  write("package/strings-de.xml", "old");
  EXPECT_TRUE(place({"strings-de.xml"}));
  EXPECT_EQ(contentsOf(folder.file("package/strings-de.xml")), "de");
  EXPECT_FALSE(fileExists(app() + "/strings-de.xml"));
  EXPECT_FALSE(place({"strings-fr.xml"}));
  EXPECT_THAT(error.text(), HasSubstr("strings-fr.xml. Error:No such file"));
}

}  // namespace
}  // namespace tovrek::test
