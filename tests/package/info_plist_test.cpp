// Edits of an app's Info.plist.
#include <gtest/gtest.h>

#include <filesystem>

#include "host/files.h"
#include "package/WexInfoPlistModifier.h"
#include "package/adal_settings.h"
#include "package/device_families.h"
#include "package/url_schemes.h"
#include "tests/package/package_testing.h"

namespace tovrek::test {
namespace {

using Array = PlistValue::Array;
using Strings = std::vector<std::string>;

Strings stringsOf(const PlistDictionary& dictionary, const char* key) {
  Strings result;
  const Array* values = arrayForKey(dictionary, key);
  if (values == nullptr) return {"(none)"};
  for (const PlistValue& value : *values) {
    result.push_back(value.string() != nullptr ? *value.string() : "(other)");
  }
  return result;
}

// The schemes of each URL type.
std::vector<Strings> urlSchemesOf(const PlistDictionary& info) {
  std::vector<Strings> result;
  for (const PlistValue& type : *arrayForKey(info, "CFBundleURLTypes")) {
    const PlistDictionary* entry = type.dictionary();
    result.push_back(entry ? stringsOf(*entry, "CFBundleURLSchemes") : Strings{"(other)"});
  }
  return result;
}

PlistValue urlType(const Array& schemes) {
  PlistDictionary type;
  type.set("CFBundleURLSchemes", schemes);
  return type;
}

// The Info.plist on disk holds the same; names the keys that differ.
void expectOnDisk(const std::string& path, const PlistDictionary& expected) {
  const auto found = readPlistDictionary(path);
  ASSERT_TRUE(found);
  EXPECT_EQ(found->size(), expected.size());
  for (const auto& [key, value] : expected) {
    const PlistValue* other = found->find(key);
    EXPECT_TRUE(other != nullptr && *other == value) << key;
  }
}

class InfoPlist : public ::testing::Test {
 protected:
  WexInfoPlistModifier modifier(const PlistDictionary& info) {
    writeInfoPlist(bundle(), info);
    return *WexInfoPlistModifier::initWithAppBundle(AppBundle::open(bundle()), log_.logger());
  }
  std::string bundle() const { return folder_.file("X.app"); }
  std::string plistPath() const { return bundle() + "/Info.plist"; }

  TemporaryFolder folder_;
  LogCapture log_;
};

TEST_F(InfoPlist, LoadingNeedsEntries) {
  EXPECT_FALSE(WexInfoPlistModifier::initWithAppBundle(std::nullopt, log_.logger()));
  EXPECT_TRUE(log_.holds("No app bundle provided to find Info.plist"));
  std::filesystem::create_directory(bundle());
  const auto opened = AppBundle::open(bundle());
  EXPECT_FALSE(WexInfoPlistModifier::initWithAppBundle(opened, log_.logger()));
  EXPECT_TRUE(log_.holds("Error:- The path for Info.plist dont exist"));
  for (const std::string contents :
       {"", "junk", "<plist><array/></plist>", "<plist><dict/></plist>"}) {
    folder_.write("X.app/Info.plist", contents);
    EXPECT_FALSE(WexInfoPlistModifier::initWithAppBundle(opened, log_.logger())) << contents;
  }
  EXPECT_TRUE(log_.holds("The plist file " + plistPath() + " does not exist"));
}

TEST_F(InfoPlist, EveryKindOfValueSurvivesBothWrites) {
  PlistDictionary info = basicInfoPlist();
  info.set("true", true);
  info.set("false", false);
  info.set("negative", -5);
  info.set("large", uint64_t{1} << 63);
  info.set("real", 0.1);
  info.set("date", PlistValue::Date{4102444800.0});  // 2100, past what 32 bits hold
  info.set("data", PlistValue::Data{std::string("\0\xff<", 3)});
  info.set("uid", PlistValue::Uid{7});
  info.set("text", "\xc3\xa9 & <");
  info.set("nested", Array{Array{}, PlistDictionary{}});

  auto edited = modifier(info);
  ASSERT_TRUE(edited.disableAppTransportSecurity());
  EXPECT_EQ(contentsOf(plistPath()).substr(0, 8), "bplist00");
  PlistDictionary expected = info;
  PlistDictionary security;
  security.set("NSAllowsArbitraryLoads", true);
  expected.set("NSAppTransportSecurity", security);
  expectOnDisk(plistPath(), expected);

  EXPECT_TRUE(edited.addKey("CFBundleName", "New", false));
  EXPECT_TRUE(edited.addKey("CFBundleVersion", "7", false));
  EXPECT_TRUE(edited.addKey("text", "changed", true));
  expectOnDisk(plistPath(), expected);  // nothing written yet
  edited.synchronize();
  expected.set("CFBundleVersion", "7");
  expected.set("text", "changed");
  EXPECT_EQ(contentsOf(plistPath()).substr(0, 5), "<?xml");
  expectOnDisk(plistPath(), expected);
}

TEST_F(InfoPlist, TransportSecurityKeepsOtherSettings) {
  PlistDictionary info = basicInfoPlist(), security;
  security.set("NSAllowsArbitraryLoads", false);
  security.set("NSExceptionDomains", PlistDictionary());
  info.set("NSAppTransportSecurity", security);
  auto edited = modifier(info);
  ASSERT_TRUE(edited.disableAppTransportSecurity());
  security.set("NSAllowsArbitraryLoads", true);
  EXPECT_EQ(*dictionaryForKey(*readPlistDictionary(plistPath()), "NSAppTransportSecurity"),
            security);
  std::filesystem::remove_all(bundle());
  EXPECT_FALSE(edited.disableAppTransportSecurity());
}

TEST_F(InfoPlist, UrlSchemes) {
  const Array present = {urlType({"xabcx", "y"}), urlType({"other", 5}), "junk", PlistDictionary()};
  const struct {
    const char* group;
    PlistValue types;
    std::vector<Strings> expected;
  } cases[] = {
      {"abc", present, {{"other", "(other)"}, {"(other)"}, {"(none)"}, {"new"}}},
      {"ABC", present, {{"xabcx", "y"}, {"other", "(other)"}, {"(other)"}, {"(none)"}, {"new"}}},
      {"", present, {{"xabcx", "y"}, {"other", "(other)"}, {"(other)"}, {"(none)"}, {"new"}}},
      {"abc", "not a list", {{"new"}}},
  };
  for (const auto& test : cases) {
    PlistDictionary info;
    info.set("CFBundleURLTypes", test.types);
    EXPECT_TRUE(AddURLScheme("new", test.group, info));
    EXPECT_EQ(urlSchemesOf(info), test.expected) << test.group;
  }
  auto edited = modifier(basicInfoPlist());
  EXPECT_TRUE(edited.addURLScheme("twice") && edited.addURLScheme("twice"));
  EXPECT_EQ(urlSchemesOf(edited.plistDictionary()), (std::vector<Strings>{{"twice"}, {"twice"}}));
  PlistDictionary added;
  added.set("CFBundleTypeRole", "Editor");
  added.set("CFBundleURLName", "com.orvane.SingleSignOn");
  added.set("CFBundleURLSchemes", Array{"twice"});
  EXPECT_EQ(arrayForKey(edited.plistDictionary(), "CFBundleURLTypes")->back(), PlistValue(added));
}

TEST_F(InfoPlist, Whitelist) {
  constexpr char kKey[] = "LSApplicationQueriesSchemes";
  PlistDictionary empty;
  EXPECT_FALSE(addURLSchemes({"a"}, empty, log_.logger()));
  EXPECT_TRUE(log_.holds("The info plist dictionary was empty"));

  auto fresh = modifier(basicInfoPlist());
  EXPECT_TRUE(fresh.addWhitelistedUrlSchemes({"b", "a", "b"}));
  EXPECT_EQ(stringsOf(fresh.plistDictionary(), kKey), (Strings{"b", "a", "b"}));
  EXPECT_TRUE(fresh.addWhitelistedUrlSchemes({"a", "c", "c"}));
  EXPECT_EQ(stringsOf(fresh.plistDictionary(), kKey), (Strings{"b", "a", "c"}));

  auto standard = modifier(basicInfoPlist());
  EXPECT_TRUE(standard.addWEXWhitelistURLSchemes());
  const Strings schemes = stringsOf(standard.plistDictionary(), kKey);
  EXPECT_EQ(schemes.size(), 13u);
  EXPECT_EQ(schemes.at(5), "col-brv-2:");
  EXPECT_EQ(schemes.back(), "orvnote");
}

TEST_F(InfoPlist, ExcludedDevices) {
  const struct {
    Array families;
    const char* expected;
  } cases[] = {{{1}, "ipad"},   {{2}, "iphone"}, {{1, 1}, "ipadipad"},
               {{1, 2}, ""},    {{}, ""},        {{"1"}, "ipad"},
               {{3}, ""},       {{1.0}, "ipad"}, {{1, "x"}, ""},
               {{Array{}}, ""}, {{0}, ""},       {{-1, 2}, "iphone"}};
  for (const auto& test : cases) {
    const PlistValue devices(test.families);
    EXPECT_EQ(getExcludedDevicesStringFromDevicesArray(&devices, log_.logger()), test.expected);
  }
  EXPECT_EQ(getExcludedDevicesStringFromDevicesArray(nullptr, log_.logger()), "");
  EXPECT_TRUE(log_.holds("incompatable datatype for UIDeviceFamily"));
}

TEST_F(InfoPlist, FriendlyName) {
  const struct {
    std::optional<PlistValue> displayName, name;
    std::optional<std::string> expected;
  } cases[] = {{"D", "N", "D"},
               {"", "N", "N"},
               {std::nullopt, "N", "N"},
               {5, "N", "N"},
               {std::nullopt, std::nullopt, std::nullopt}};
  for (const auto& test : cases) {
    PlistDictionary info;
    info.set("other", "entry");
    if (test.displayName) info.set("CFBundleDisplayName", *test.displayName);
    if (test.name) info.set("CFBundleName", *test.name);
    EXPECT_EQ(modifier(info).friendlyIPAname(), test.expected);
  }
}

TEST_F(InfoPlist, IntuneSettings) {
  auto edited = modifier(basicInfoPlist());
  EXPECT_FALSE(edited.intuneMAMSettingsObjectForKey("k"));
  EXPECT_TRUE(log_.holds("IntuneMAMSettings not found.\n"));
  EXPECT_TRUE(edited.intuneMAMSettingsAddKey("k", "1", false));
  EXPECT_TRUE(log_.holds("Might have to add it now."));
  EXPECT_FALSE(edited.intuneMAMSettingsAddKey("k", "2", false));
  EXPECT_TRUE(log_.holds("IntuneMAMSettings: Already has k key, so not updating."));
  EXPECT_TRUE(edited.intuneMAMSettingsAddKey("other", "3", false));
  EXPECT_EQ(edited.intuneMAMSettingsObjectForKey("k"), PlistValue("1"));
  EXPECT_TRUE(edited.intuneMAMSettingsAddKey("k", "2", true));
  EXPECT_EQ(edited.intuneMAMSettingsObjectForKey("k"), PlistValue("2"));
  EXPECT_EQ(edited.intuneMAMSettingsObjectForKey("other"), PlistValue("3"));
}

// "default" stands for whatever the build's own value is.
TEST_F(InfoPlist, AdalValues) {
  using Text = std::optional<std::string>;
  const Text none;
  const struct {
    Text client, resource;            // in the app
    Text givenClient, givenResource;  // by the user
    std::string expectedClient, expectedResource;
    std::string logged;
  } cases[] = {
      {none, none, none, none, "default", "default", "Default NV WEX Multi Tenant AdalClientId "},
      {none, none, "", "", "default", "default", "default NV NSG ADAL Multi Tenant Resource "},
      {none, none, "c", "r", "c", "r", "AdalClientId parameter c was stored in info.plist"},
      {"own", "res", none, none, "own", "res", "not store default NV NSG ADAL Multi Tenant Resour"},
      {"own", "res", "", none, "default", "res", " was updated in info.plist"},
      {"own", "res", "c", "r", "c", "r", "AdalClientId parameter c was updated in info.plist"},
      {"own", none, none, "r", "own", "r", "adalNSGResource parameter r was stored in info.plist"},
  };
  for (const auto& test : cases) {
    PlistDictionary info = basicInfoPlist(), settings;
    if (test.client) settings.set("ADALClientId", *test.client);
    if (test.resource) settings.set("NSGADALResource", *test.resource);
    if (!settings.empty()) info.set("IntuneMAMSettings", settings);
    auto edited = modifier(info);
    LogCapture log;
    EXPECT_TRUE(updateInfoPlistObject(edited, test.givenClient, test.givenResource, log.logger()));
    EXPECT_TRUE(log.holds(test.logged)) << log.text();
    const PlistDictionary& result =
        *dictionaryForKey(edited.plistDictionary(), "IntuneMAMSettings");
    const auto shown = [&](const char* key, const char* uri, size_t length) {
      const std::string value = stringForKeyOr(result, key, "(none)");
      const bool isDefault = value.find(uri) == 0 && value.size() >= length && value != "(none)";
      return isDefault ? "default" : value;
    };
    EXPECT_EQ(shown("ADALClientId", "", 36), test.expectedClient);
    EXPECT_EQ(shown("NSGADALResource", "https://", 45), test.expectedResource);
  }
}

}  // namespace
}  // namespace tovrek::test
