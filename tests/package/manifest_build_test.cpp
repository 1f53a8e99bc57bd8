// Building a manifest from an app bundle: the document, and what it does to the app.
#include <gtest/gtest.h>

#include "formats/Digest.h"
#include "formats/WEX_Base64.h"
#include "formats/XmlDocument.h"
#include "host/files.h"
#include "host/host_info.h"
#include "package/ManifestLibInterface.h"
#include "package/checksum.h"
#include "tests/package/package_testing.h"
#include "tests/support/PngBuilder.h"
#include "tests/support/ScriptedHostRoot.h"

namespace tovrek::test {
namespace {

using Strings = std::vector<std::string>;

class ManifestBuild : public ::testing::Test {
 protected:
  ManifestBuild() {
    host_.addTool("codesign", "cat '" + entitlements_ + "' 2>/dev/null");
    info_.set("CFBundleIcons", iconDictionary({"Icon", "Wide@2x.png", "Broken"}));
    info_.set("UIDeviceFamily", PlistValue::Array{1});
    info_.set("MinimumOSVersion", "12.0");
    folder_.write("Demo.app/Demo", "executable code");
    folder_.write("Demo.app/Icon.png", pngFile(noisePicture(57, 57, 4)));
    PngForm standard;
    standard.optimised = false;
    folder_.write("Demo.app/Wide@2x.png", pngFile(noisePicture(120, 60, 3), standard));
    folder_.write("Demo.app/Broken.png", "no image");
    createDirectories(folder_.file("package"));
    context_.loggers.toolkit = context_.loggers.manifest = log_.logger();
    app_.ipaFilename = "/out/Demo.ipa";
    app_.packageId = "PKG-1";
  }

  static PlistDictionary iconDictionary(const PlistValue::Array& names) {
    PlistDictionary icons, primary;
    primary.set("CFBundleIconFiles", names);
    icons.set("CFBundlePrimaryIcon", primary);
    return icons;
  }
  void writeProfile(const std::string& identifier) {
    PlistDictionary profile, entitlements;
    entitlements.set("application-identifier", identifier);
    profile.set("Entitlements", entitlements);
    profile.set("ExpirationDate", PlistValue::Date{4102444800.0});
    folder_.write("Demo.app/embedded.mobileprovision",
                  "\x30\x82" + serializePlist(profile, PlistFormat::kXml) + "\x99");
  }
  void signWith(const std::string& identifier) {
    PlistDictionary entitlements;
    entitlements.set("application-identifier", identifier);
    writePlist(entitlements_, entitlements, PlistFormat::kXml);
  }
  ManifestLibInterface manifest(const Strings& languages = {}) {
    app_.appBundle = AppBundle::open(bundle());
    return {app_, {folder_.file("package"), manifestPath(), languages}, context_};
  }
  // Writes info_, builds, and reads the document.
  XmlDocument build(const Strings& languages = {}) {
    writeInfoPlist(bundle(), info_);
    EXPECT_EQ(manifest(languages).buildManifestXml(), 0) << log_.text();
    auto document = XmlDocument::readFile(manifestPath());
    return document ? std::move(*document) : XmlDocument(XmlElement("missing"));
  }
  static Strings textsAt(const XmlDocument& document, const std::string& xpath) {
    Strings texts;
    const auto nodes = document.find(xpath);
    if (!nodes) return {"(no expression)"};
    for (const XmlNode& node : *nodes) texts.push_back(node.text());
    return texts;
  }
  static std::string textAt(const XmlDocument& document, const std::string& xpath) {
    const Strings texts = textsAt(document, xpath);
    return texts.size() == 1 ? texts.front() : "(" + xpath + " not there once)";
  }
  std::string app(const XmlDocument& document, const std::string& element) {
    return textAt(document, "/MobileAppPackage/MobileApp/" + element);
  }
  std::string bundle() const { return folder_.file("Demo.app"); }
  std::string manifestPath() const { return folder_.file("package/manifest.xml"); }

  TemporaryFolder folder_;
  std::string entitlements_ = folder_.file("entitlements.plist");
  ScriptedHostRoot host_;
  LogCapture log_;
  PlistDictionary info_ = basicInfoPlist();
  RunContext context_;
  WexManifestAppInfo app_;
};

TEST_F(ManifestBuild, WholeDocument) {
  writeProfile("TEAM1.com.example.demo");
  app_.description = "About & more";
  const XmlDocument document = build({"strings-de.xml", "strings-fr.xml"});
  // Every element in order, as "name[key]".
  std::string shape;
  const std::function<void(const XmlNode&)> walk = [&](const XmlNode& node) {
    const auto key = node.attribute("CRKW");
    shape += " " + node.name() + (key ? "[" + *key + "]" : "");
    for (const XmlNode& child : node.children()) walk(child);
  };
  walk(document.root());
  EXPECT_EQ(shape,
            " MobileAppPackage PackageInfo Description Date CertExpires Packager User Machine"
            " ToolsVersion"
            " MobileApp ToolVersion[MamToolsVersion] ToolsProductVersion ToolsBuildNumber"
            " AppType[MamAppType] AppID[MamAppID] AppVersion[MamAppVersion] BundleID FriendlyName"
            " BundleChecksum MinPlatform[MamMinPlatform] ExcludeDeviceTypes[MamExcludeDeviceTypes]"
            " UrlScheme BundleFile PackageID[MamPackageID]"
            " Icons Icon xRes yRes IconFile Icon xRes yRes IconFile"
            " PackageSize[MamPackageSize] PublicKey[MamPublicKey] WEXApplicationType"
            " AppUniqueID[MamAppUniqueID] WrappingTimestamp[MamWrappingTimestamp]"
            " Policies PolicyMetadata Languages LanguageFile LanguageFile");
  const std::pair<const char*, std::string> texts[] = {
      {"PackageInfo/Description", "About & more"},
      {"PackageInfo/CertExpires", "2100-01-01 00:00:00 +0000"},
      {"PackageInfo/Packager/User", userName()},
      {"PackageInfo/Packager/Machine", machineName()},
      {"PackageInfo/Packager/ToolsVersion", "20.5.0"},
      {"MobileApp/ToolVersion", "20.5.0"},
      {"MobileApp/ToolsProductVersion", "20.5.0"},
      {"MobileApp/ToolsBuildNumber", "0"},
      {"MobileApp/AppType", "application/ios"},
      {"MobileApp/AppID", "TEAM1.com.example.demo"},
      {"MobileApp/AppVersion", "2.1"},
      {"MobileApp/BundleID", "com.example.demo"},
      {"MobileApp/FriendlyName", "Demo"},
      {"MobileApp/MinPlatform", "12.0"},
      {"MobileApp/ExcludeDeviceTypes", "ipad"},
      {"MobileApp/UrlScheme", "com.orvane.sso.PKG-1"},
      {"MobileApp/BundleFile", "Demo.ipa"},
      {"MobileApp/PackageID", "PKG-1"},
      {"MobileApp/Icons/Icon[1]/IconFile", "Icon.png"},
      {"MobileApp/Icons/Icon[1]/xRes", "57"},
      {"MobileApp/Icons/Icon[2]/IconFile", "Wide@2x.png"},
      {"MobileApp/Icons/Icon[2]/yRes", "60"},
      {"MobileApp/PackageSize", ""},
      {"MobileApp/WEXApplicationType", "WEXOnly"},
      {"Policies/PolicyMetadata", "policy_metadata.xml"},
      {"Policies/Languages/LanguageFile[2]", "strings-fr.xml"},
  };
  for (const auto& [path, text] : texts) {
    EXPECT_EQ(textAt(document, std::string("/MobileAppPackage/") + path), text) << path;
  }
  EXPECT_EQ(textAt(document, "//PackageInfo/Date").size(), 25u);
  EXPECT_EQ(app(document, "PublicKey").size(), 64u);
  EXPECT_EQ(app(document, "AppUniqueID"),
            hexUpper(digestOf(DigestAlgorithm::kMd5, "TEAM1.com.example.demoDemo")));
  EXPECT_TRUE(log_.holds("Icon resolution is 0, not adding icon Broken.png"));
  // Compact: one line behind the declaration.
  const std::string bytes = contentsOf(manifestPath());
  EXPECT_EQ(std::count(bytes.begin(), bytes.end(), '\n'), 2);
}

TEST_F(ManifestBuild, FinishesTheApp) {
  writeProfile("TEAM1.com.example.demo");
  info_.set("NSFaceIDUsageDescription", "own words");
  app_.appMode = "1";
  const XmlDocument document = build();
  const PlistDictionary info = AppBundle::open(bundle())->infoPlist();
  EXPECT_EQ(contentsOf(bundle() + "/Info.plist").substr(0, 5), "<?xml");
  EXPECT_TRUE(
      *dictionaryForKey(info, "NSAppTransportSecurity")->find("NSAllowsArbitraryLoads")->boolean());
  EXPECT_EQ(*stringForKey(info, "NSFaceIDUsageDescription"), "own words");
  EXPECT_EQ(*stringForKey(info, "NSLocationWhenInUseUsageDescription"),
            "Your organization's policy requires your location for this app.");
  EXPECT_EQ(arrayForKey(info, "LSApplicationQueriesSchemes")->size(), 13u);
  Strings schemes;
  for (const PlistValue& type : *arrayForKey(info, "CFBundleURLTypes")) {
    schemes.push_back(*arrayForKey(*type.dictionary(), "CFBundleURLSchemes")->front().string());
  }
  EXPECT_EQ(schemes, (Strings{"com.orvane.sso.PKG-1", "mailcompose.PKG-1"}));
  EXPECT_FALSE(info.contains("IntuneMAMSettings"));

  const PlistDictionary settings = *readPlistDictionary(bundle() + "/Orvane.plist");
  EXPECT_EQ(settings.size(), 8u);
  const std::pair<const char*, std::string> expected[] = {
      {"CheckSum", app(document, "BundleChecksum")},
      {"AppID", app(document, "AppID")},
      {"PackageID", "PKG-1"},
      {"publicKey", app(document, "PublicKey")},
      {"AppUniqueID", app(document, "AppUniqueID")},
      {"WrappingTimestamp", app(document, "WrappingTimestamp")},
      {"ReleaseVersion", "r20.5.0_v20.5.0.0"},
      {"AppMode", "1"}};
  for (const auto& [key, value] : expected) EXPECT_EQ(stringForKeyOr(settings, key, ""), value);
  // The checksum is over the app as it was left, less the settings file.
  Digest digest(DigestAlgorithm::kSha256);
  LookForRecursiveFileWith(bundle(), digest, log_.logger());
  EXPECT_EQ(app(document, "BundleChecksum"), hexLower(digest.finish()));

  // A second run puts its scheme in place of the first one's; the mail scheme piles up.
  info_ = info;
  app_.packageId = "PKG-2";
  build();
  const auto types = *arrayForKey(AppBundle::open(bundle())->infoPlist(), "CFBundleURLTypes");
  EXPECT_EQ(types.size(), 3u);
}

TEST_F(ManifestBuild, ApplicationIdentifier) {
  const struct {
    const char *profile, *entitlements;  // null: none
    std::optional<std::string> team;
    const char* expected;
  } cases[] = {
      {"ABCDE12345.com.example.demo", "X.y", {}, "ABCDE12345.com.example.demo"},
      {"ABCDE12345.*", nullptr, {}, "ABCDE12345.com.example.demo"},
      {"ABCDE12345.com.acme.*", nullptr, {}, "ABCDE12345.com.example.demo"},
      {"PREFIX*", nullptr, {}, "PREFIXcom.example.demo"},
      {nullptr, "SIGNED.*", "TEAM", "SIGNED.com.example.demo"},
      {nullptr, nullptr, "TEAM", "TEAM.com.example.demo"},
      {nullptr, nullptr, {}, "com.example.demo"},
  };
  for (const auto& test : cases) {
    for (const char* stale : {"Demo.app/embedded.mobileprovision", "entitlements.plist"}) {
      if (fileExists(folder_.file(stale))) removeItem(folder_.file(stale));
    }
    if (test.profile != nullptr) writeProfile(test.profile);
    if (test.entitlements != nullptr) signWith(test.entitlements);
    app_.teamId = test.team;
    EXPECT_EQ(app(build(), "AppID"), test.expected);
  }
  EXPECT_TRUE(
      log_.holds("Warning:- Unable to get app identifier from embedded entitlements, "
                 "reverting to bundle identifier com.example.demo (teamId = (null))."));
  EXPECT_TRUE(log_.holds("trying embedded entitlements."));
}

TEST_F(ManifestBuild, ModesAndStoreAddress) {
  const struct {
    const char *appMode, *url, *type, *mode;
  } cases[] = {
      {"", "", "WEXOnly", nullptr},
      {" 1\n", "http://a.b/c", "Premium", "1"},
      {"2", "", "General", "2"},
      {"5", "", "Invalid", "5"},
  };
  for (const auto& test : cases) {
    app_.appMode = test.appMode;
    app_.appStoreURL = test.url;
    const XmlDocument document = build();
    EXPECT_EQ(app(document, "WEXApplicationType"), test.type);
    const Strings modes = textsAt(document, "//SDKAppMode[@CRKW='MamSDKAppMode']");
    Strings stores = textsAt(document, "//AppStoreUrl[@CRKW='MamPublicStoreURL']");
    for (std::string& store : stores) store = WEX_Base64::decode(store).value_or("(no base64)");
    EXPECT_EQ(modes, test.mode == nullptr ? Strings{} : Strings{test.mode});
    EXPECT_EQ(stores, *test.url == '\0' ? Strings{} : Strings{test.url});
    // With a store address the size is a fixed one.
    const std::string ipa = folder_.write("x.ipa", "12345");
    manifest().GeneratePackageSizeWithIpaFile(ipa);
    EXPECT_EQ(app(*XmlDocument::readFile(manifestPath()), "PackageSize"),
              *test.url == '\0' ? "5" : "2000");
  }
  EXPECT_EQ(manifestStoreUrl(" http://a.b/c "), "http://a.b/c");
  EXPECT_EQ(manifestStoreUrl(std::nullopt), ORVANE_DEFAULT_APPSTOREURL);
}

TEST_F(ManifestBuild, DefaultsForAPoorInfoPlist) {
  info_ = PlistDictionary();
  info_.set("CFBundleIconFile", "Icon");
  info_.set("MinimumOSVersion", 12);
  app_.packageId.reset();
  const XmlDocument document = build();
  EXPECT_EQ(app(document, "AppVersion"), "1.0");
  EXPECT_EQ(app(document, "BundleID"), "");
  EXPECT_EQ(app(document, "FriendlyName"), "/out/Demo.ipa");
  EXPECT_EQ(app(document, "PackageID").size(), 36u);
  EXPECT_EQ(textAt(document, "//Description"), "Managed Enterprise Application");
  EXPECT_EQ(textAt(document, "//CertExpires"), textAt(document, "//PackageInfo/Date"));
  for (const char* absent : {"//MinPlatform", "//ExcludeDeviceTypes", "//Languages"}) {
    EXPECT_TRUE(document.find(absent)->empty()) << absent;
  }
}

TEST_F(ManifestBuild, HostileNamesLeaveTheDocumentWhole) {
  info_.set("CFBundleName", "]]><x a='\"'>&amp;\x01\n\xc3\xa9");
  info_.set("CFBundleIcons", iconDictionary({"Icon", "../../secret", "quote\"d'"}));
  folder_.write("Demo.app/quote\"d'.png", pngFile(noisePicture(8, 9, 4)));
  folder_.write("secret.png", pngFile(noisePicture(8, 9, 4)));
  // The binary form can hold what the XML form cannot.
  ASSERT_TRUE(writePlist(bundle() + "/Info.plist", info_, PlistFormat::kBinary));
  ASSERT_EQ(manifest().buildManifestXml(), 0) << log_.text();
  const auto document = *XmlDocument::readFile(manifestPath());
  EXPECT_EQ(app(document, "FriendlyName"), "]]><x a='\"'>&amp;\n\xc3\xa9");
  EXPECT_EQ(stringForKeyOr(AppBundle::open(bundle())->infoPlist(), "CFBundleName", ""),
            "]]><x a='\"'>&amp;\n\xc3\xa9");
  EXPECT_EQ(app(document, "Icons/Icon[2]/IconFile"), "quote\"d'.png");
  EXPECT_EQ(document.find("//Icon")->size(), 2u);
  EXPECT_EQ(manifest().copyIconFiles(), 0);
  EXPECT_EQ(listDirectory(folder_.file("package")),
            (Strings{"Icon.png", "manifest.xml", "quote\"d'.png"}));
}

TEST_F(ManifestBuild, Failures) {
  EXPECT_EQ(ManifestLibInterface(app_, {}, context_).copyIconFiles(), -1);
  EXPECT_TRUE(log_.holds("ERROR! CopyIconFiles: Cannot find appBundle."));
  const struct {
    std::function<void()> damage;
    const char* logged;
  } cases[] = {
      {[&] { app_.packageId = ""; }, "Error:- Could not generate Package ID"},
      {[&] {
         app_.packageId = "P";
         info_.set("CFBundleIcons", iconDictionary({"Nowhere"}));
       },
       "Could not find Icon entry in "},
      {[&] {
         info_.remove("CFBundleIdentifier");
         writeProfile("TEAM.*");
       },
       "Error:- We are not able to add MobileApp section into manifest XML file"},
  };
  for (const auto& test : cases) {
    test.damage();
    writeInfoPlist(bundle(), info_);
    EXPECT_EQ(manifest().buildManifestXml(), -1);
    EXPECT_TRUE(log_.holds(test.logged)) << log_.text();
    EXPECT_FALSE(fileExists(manifestPath()));
  }
  EXPECT_EQ(manifest().copyIconFiles(), -1);
  EXPECT_TRUE(log_.holds("WARNING! CopyIconFiles: Cannot find any icon files from Info.plist."));
}

TEST_F(ManifestBuild, IntuneAppGetsItsSettings) {
  app_.isIntuneApp = true;
  app_.adalClientId = "client";
  app_.adalNSGResource = "resource";
  build();
  const PlistDictionary info = AppBundle::open(bundle())->infoPlist();
  const PlistDictionary* settings = dictionaryForKey(info, "IntuneMAMSettings");
  ASSERT_NE(settings, nullptr);
  EXPECT_EQ(*stringForKey(*settings, "ADALClientId"), "client");
  EXPECT_EQ(*stringForKey(*settings, "NSGADALResource"), "resource");
}

TEST_F(ManifestBuild, CopiesIconsAsStandardImages) {
  build();
  EXPECT_EQ(manifest().copyIconFiles(), 0);
  const auto isOptimised = [](const std::string& bytes) { return bytes.substr(12, 4) == "CgBI"; };
  EXPECT_TRUE(isOptimised(contentsOf(bundle() + "/Icon.png")));
  EXPECT_FALSE(isOptimised(contentsOf(folder_.file("package/Icon.png"))));
  EXPECT_EQ(contentsOf(folder_.file("package/Wide@2x.png")), contentsOf(bundle() + "/Wide@2x.png"));
  EXPECT_EQ(app(*XmlDocument::readFile(manifestPath()), "Icons/Icon[1]/xRes"), "57");
}

}  // namespace
}  // namespace tovrek::test
