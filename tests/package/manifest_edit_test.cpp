// Edits of a finished manifest.
#include <gtest/gtest.h>

#include "formats/XmlDocument.h"
#include "package/manifest_edits.h"
#include "tests/package/package_testing.h"
#include "tests/support/ScriptedHostRoot.h"

namespace tovrek::test {
namespace {

constexpr char kHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n";
constexpr char kStore[] = "<AppStoreUrl CRKW=\"MamPublicStoreURL\">x</AppStoreUrl>";

class ManifestEdit : public ::testing::Test {
 protected:
  // A manifest whose MobileApp holds these elements.
  std::string manifest(const std::string& elements) {
    return folder_.write("manifest.xml", document(elements));
  }
  static std::string document(const std::string& elements) {
    return std::string(kHead) + "<MobileAppPackage><MobileApp>" + elements +
           "</MobileApp></MobileAppPackage>\n";
  }
  void expectManifest(const std::string& elements) const {
    EXPECT_EQ(contentsOf(folder_.file("manifest.xml")), document(elements));
  }
  TemporaryFolder folder_;
  LogCapture log_;
};

TEST_F(ManifestEdit, UserSelection) {
  const std::string min = "<MinPlatform CRKW=\"MamMinPlatform\">",
                    max = "<MaxPlatform CRKW=\"MamMaxPlatform\">",
                    excluded = "<ExcludeDeviceTypes CRKW=\"MamExcludeDeviceTypes\">";
  ManifestData data("New & name");
  data.minPlatform = "9.0";
  data.maxPlatform = "15<";
  // Missing elements are appended, in the order minimum, maximum, devices.
  const std::string path =
      manifest(excluded + "ipad</ExcludeDeviceTypes><FriendlyName>Old</FriendlyName><Last/>");
  EXPECT_TRUE(UpdateManifestFileAsPerUserSelection(path, data, log_.logger()));
  expectManifest(
      "<ExcludeDeviceTypes CRKW=\"MamExcludeDeviceTypes\"/>"
      "<FriendlyName>New &amp; name</FriendlyName><Last/>" +
      min + "9.0</MinPlatform>" + max + "15&lt;</MaxPlatform>");
  // No values empty what is there; an empty name changes nothing.
  EXPECT_TRUE(UpdateManifestFileAsPerUserSelection(path, ManifestData(""), log_.logger()));
  expectManifest(
      "<ExcludeDeviceTypes CRKW=\"MamExcludeDeviceTypes\"/>"
      "<FriendlyName>New &amp; name</FriendlyName><Last/>"
      "<MinPlatform CRKW=\"MamMinPlatform\"/><MaxPlatform CRKW=\"MamMaxPlatform\"/>");
  EXPECT_EQ(log_.text(), "");
}

TEST_F(ManifestEdit, FailuresChangeNothing) {
  const std::string platforms =
      "<MinPlatform CRKW=\"MamMinPlatform\">1</MinPlatform>"
      "<MaxPlatform CRKW=\"MamMaxPlatform\">2</MaxPlatform>"
      "<ExcludeDeviceTypes CRKW=\"MamExcludeDeviceTypes\">3</ExcludeDeviceTypes>";
  ManifestData data("Name");
  data.minPlatform = "9";
  const auto select = [&](const std::string& path, const WrapperLogger& to) {
    return UpdateManifestFileAsPerUserSelection(path, data, to);
  };
  using Edit = std::function<bool(const std::string&, const WrapperLogger&)>;
  const struct {
    std::string elements;
    Edit edit;
    const char* logged;
  } cases[] = {
      {platforms, select, "Could not update application Friendly Name"},
      {"<FriendlyName/>" + platforms + platforms, select,
       "Could not update application Minium Platform"},
      {"<FriendlyName/>" + platforms + "<MaxPlatform CRKW=\"MamMaxPlatform\"/>", select,
       "Could not update application Maximum Platform"},
      {"<FriendlyName/>" + platforms + "<ExcludeDeviceTypes CRKW=\"MamExcludeDeviceTypes\"/>",
       select, "Could not update application Excluded Device Types"},
      {"<AppStoreUrl>no key</AppStoreUrl>",
       [](const std::string& path, const WrapperLogger& to) {
         return UpdateAppStoreURL(path, "u", to);
       },
       "Could not update application ,MamPublicStoreURL not avaliable in manifest file"},
      {std::string(kStore) + kStore,
       [](const std::string& path, const WrapperLogger& to) { return removeAppStoreURL(path, to); },
       "Could not update application, remove MamPublicStoreURL failed."},
      {"",
       [](const std::string& path, const WrapperLogger& to) { return removeAppStoreURL(path, to); },
       "Manifest update: matchingNodes count = 0."},
      {"<BundleFile/><BundleFile/>",
       [](const std::string& path, const WrapperLogger& to) {
         return updateManifestFile(path, "x.ipa", to);
       },
       "Could not update application, BundleFile."},
      {"<A/>",
       [](const std::string& path, const WrapperLogger& to) {
         return updateAppWEXProperty(path, "//B[", "v", to);
       },
       "Could not update application property with Value v \n"},
      {"<PackageSize CRKW=\"MamPackageSize\"/><PackageSize CRKW=\"MamPackageSize\"/>",
       [](const std::string& path, const WrapperLogger& to) {
         return ModifyPackageSize(path, path, "", to);
       },
       "The manifest.xml file has multiple entry of PackageSize element"},
      {"<PackageSize CRKW=\"MamPackageSize\"/>",
       [](const std::string& path, const WrapperLogger& to) {
         return ModifyPackageSize(path, path + ".missing", "", to);
       },
       "Error reading ipa file size"},
  };
  for (const auto& test : cases) {
    SCOPED_TRACE(test.logged);
    LogCapture log;
    EXPECT_FALSE(test.edit(manifest(test.elements), log.logger()));
    EXPECT_TRUE(log.holds(test.logged)) << log.text();
    EXPECT_EQ(contentsOf(folder_.file("manifest.xml")), document(test.elements));
    EXPECT_FALSE(test.edit(folder_.file("missing.xml"), log.logger()));
    EXPECT_FALSE(test.edit(folder_.write("junk.xml", "no xml"), log.logger()));
  }
}

TEST_F(ManifestEdit, StoreAddressBundleFileAndOthers) {
  const std::string path = manifest(std::string("<BundleFile>a</BundleFile><X>1</X>") + kStore);
  EXPECT_TRUE(updateManifestFile(path, "b&c.ipa", log_.logger()));
  EXPECT_TRUE(
      updateAppWEXProperty(path, "/MobileAppPackage/MobileApp/X", std::nullopt, log_.logger()));
  // Base64 of more than one line: the line ends have to survive being read again.
  EXPECT_TRUE(UpdateAppStoreURL(path, std::string(60, 'u'), log_.logger()));
  const auto document = XmlDocument::readFile(path);
  const std::string encoded = document->find("//AppStoreUrl")->front().text();
  EXPECT_EQ(encoded.find("\r\n"), 64u);
  EXPECT_EQ(encoded.size(), 82u);
  EXPECT_TRUE(removeAppStoreURL(path, log_.logger()));
  expectManifest("<BundleFile>b&amp;c.ipa</BundleFile><X/>");
}

TEST_F(ManifestEdit, PackageSize) {
  const std::string path = manifest("<PackageSize CRKW=\"MamPackageSize\"/>");
  const std::string ipa = folder_.write("a.ipa", std::string(4321, 'x'));
  EXPECT_TRUE(ModifyPackageSize(path, ipa, "", log_.logger()));
  expectManifest("<PackageSize CRKW=\"MamPackageSize\">4321</PackageSize>");
  EXPECT_TRUE(ModifyPackageSize(path, folder_.file("missing"), std::nullopt, log_.logger()));
  expectManifest("<PackageSize CRKW=\"MamPackageSize\">2000</PackageSize>");
}

TEST_F(ManifestEdit, DamagedManifestIsMended) {
  const ScopedEnvironment hostRoot("TOVREK_HOST_ROOT", TOVREK_BUILT_FOLDER "/host");
  const std::string path = folder_.write(
      "manifest.xml", "<MobileAppPackage><MobileApp>\n<BundleFile>a &nbsp; b</BundleFile>");
  EXPECT_TRUE(updateManifestFile(path, "c.ipa", log_.logger()));
  EXPECT_TRUE(log_.holds(path + " is damaged and was read as far as it could be: line 2: "))
      << log_.text();
  expectManifest("\n<BundleFile>c.ipa</BundleFile>");
}

}  // namespace
}  // namespace tovrek::test
