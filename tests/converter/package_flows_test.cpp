#include "tests/converter/FlowTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

// A package with a manifest and an .ipa, as a wrap leaves it.
class Packages : public FlowTest {
 protected:
  Packages() {
    inApp("OrvaneDylib.bundle/OrvaneDylib.dylib", "");
    zip("inner.ipa", {"Payload"});
    write("manifest.xml",
          "<MobileAppPackage><PackageInfo><Description>old</Description></PackageInfo><MobileApp>"
          "<MinPlatform CRKW=\"MamMinPlatform\">8.0</MinPlatform><BundleFile>inner.ipa</BundleFile>"
          "<AppStoreUrl CRKW=\"MamPublicStoreURL\">x</AppStoreUrl></MobileApp></MobileAppPackage>");
    write("icon.PNG", "icon");
    zip("in.wex", {"inner.ipa", "manifest.xml", "icon.PNG"});
    request.isResign = false;
    request.inputFile = folder.file("in.wex");
    request.outputFile = folder.file("out.wex");
  }
};

TEST_F(Packages, AreSignedAnew) {
  ASSERT_TRUE(converter().CreatePackageFromWex(&error)) << error.text();
  EXPECT_EQ(inOutput("icon.PNG"), "icon");
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<Description>old</Description>"));
  write("inner.zip", inOutput("inner.ipa"));
  Outcome profile;
  runProcess({.argv = {"/usr/bin/unzip", "-p", folder.file("inner.zip"),
                       "Payload/Demo.app/embedded.mobileprovision"}},
             &profile);
  EXPECT_EQ(profile.output, "signed profile");
  std::vector<std::string> signatures;
  for (const std::string& call : host.allCalls()) {
    if (call.starts_with("codesign|-f")) signatures.push_back(call);
  }
  ASSERT_EQ(signatures.size(), 2U);
  EXPECT_THAT(signatures[0], ::testing::EndsWith("/OrvaneDylib.bundle/OrvaneDylib.dylib"));
}

TEST_F(Packages, AreUpdated) {
  request.command = CommandWord::kSetInfo;
  request.minPlatform = "9.0";
  request.description = "new";
  const auto update = [&] {
    error.clear();
    return converter().CreatePackage(&error);
  };
  ASSERT_TRUE(update()) << error.text();
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr(">9.0</MinPlatform>"));
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<Description>new</Description>"));
  EXPECT_EQ(inOutput("icon.PNG"), "icon");

  request.sdkOp = SdkOperation::kStoreAddress;
  request.appStoreUrl = "http://example.com";
  ASSERT_TRUE(update());
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("aHR0cDovL2V4YW1wbGUuY29t"));

  request.sdkOp = SdkOperation::kEmbeddedBundle;
  request.embedBundlePath = write("Other.ipa", "other");
  ASSERT_TRUE(update());
  EXPECT_EQ(inOutput("Other.ipa"), "other");
  EXPECT_EQ(inOutput("inner.ipa"), "");
  EXPECT_THAT(inOutput("manifest.xml"), HasSubstr("<BundleFile>Other.ipa</BundleFile>"));
  EXPECT_THAT(inOutput("manifest.xml"), ::testing::Not(HasSubstr("AppStoreUrl")));

  request.maxPlatform = "10";  // no such element in this manifest
  EXPECT_FALSE(update());
}

TEST_F(Packages, TakeInNothingThroughLinks) {
  const std::string secret = write("secret", "secret");
  link(secret, "planted.xml");
  zip("in.wex", {"planted.xml"});
  constexpr char kText[] = "The input holds a link that is not accepted: ";
  constexpr char kReason[] = " (packages hold no links)";
  EXPECT_FALSE(converter().CreatePackageFromWex(&error));
  EXPECT_EQ(error.text(), std::string(kText) + "planted.xml" + kReason);

  link(secret, "Payload/Demo.app/planted");
  removeItem(folder.file("inner.ipa"));
  zip("inner.ipa", {"Payload"});
  removeItem(folder.file("in.wex"));
  removeItem(folder.file("planted.xml"));
  zip("in.wex", {"inner.ipa"});
  EXPECT_FALSE(converter().CreatePackageFromWex(&error));
  EXPECT_EQ(error.text(), std::string(kText) + "Payload/Demo.app/planted" + kReason);
}

}  // namespace
}  // namespace tovrek::test
