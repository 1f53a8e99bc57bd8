// Which files are an app's icons, and their sizes in the manifest.
#include <gtest/gtest.h>

#include <filesystem>

#include "host/files.h"
#include "package/bundle_icons.h"
#include "package/icon_sizes.h"
#include "tests/package/package_testing.h"
#include "tests/support/PngBuilder.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

using test::noisePicture;
using test::pngFile;

class Icons : public testing::Test {
 protected:
  // Makes the app from the entries of its Info.plist and the names of its (optimised) icons.
  AppBundle app(const std::string& info, const std::vector<std::string>& files) {
    std::filesystem::remove_all(app_);
    folder_.write("A.app/Info.plist", "<plist version=\"1.0\"><dict>" + info + "</dict></plist>");
    uint32_t width = 1;
    for (const std::string& file : files) {
      folder_.write("A.app/" + file, pngFile(noisePicture(width++, 2, 4)));
    }
    return *AppBundle::open(app_);
  }

  test::TemporaryFolder folder_;
  test::LogCapture log_;
  std::string app_ = folder_.file("A.app");
};

std::string key(const std::string& name, const std::string& value) {
  return "<key>" + name + "</key>" + value;
}
std::string names(const std::vector<std::string>& list) {
  std::string text;
  for (const std::string& name : list) text += "<string>" + name + "</string>";
  return "<array>" + text + "</array>";
}
std::string dict(const std::string& entries) {
  return "<dict>" + entries + "</dict>";
}
std::string primary(const std::vector<std::string>& list) {
  return dict(key("CFBundlePrimaryIcon", dict(key("CFBundleIconFiles", names(list)))));
}

TEST_F(Icons, TakesTheFirstListInOrderOfPrecedence) {
  const std::string topLevel = key("CFBundleIconFiles", names({"Top"}));
  const std::string document =
      key("CFBundleDocumentTypes",
          "<array>" + dict(key("CFBundleTypeIconFiles", names({"Doc.png"}))) + "</array>");
  const std::string single = key("CFBundleIconFile", "<string>Single</string>");
  const std::string rest = document + single;
  const std::string newsstand =
      dict(key("UINewsstandIcon", dict(key("CFBundleIconFiles", names({"News"})))));
  struct Case {
    std::string info;
    std::vector<std::string> expected;
  };
  const std::vector<std::string> all = {"Top.png", "Main.png",   "Phone.png",
                                        "Pad.png", "Pod.png",    "News.png",
                                        "Doc.png", "Single.png", "Icon-72.png"};
  for (const Case& c : {
           Case{topLevel + rest, {"Top.png", "Icon-72.png"}},
           Case{topLevel + key("CFBundleIcons", "<dict/>"), {"Top.png", "Icon-72.png"}},
           Case{key("CFBundleIconFiles", names({"Icon-72"})), {"Icon-72.png"}},
           Case{topLevel + key("CFBundleIcons", primary({"Main"})) + rest, {"Main.png"}},
           Case{key("CFBundleIcons", newsstand) + rest, {"News.png"}},
           Case{key("CFBundleIcons", "<dict/>") + key("CFBundleIcons~ipod", primary({"Pod"})) +
                    key("CFBundleIcons~ipad", primary({"Pad"})) +
                    key("CFBundleIcons~iphone", primary({"Phone"})),
                {"Phone.png"}},
           Case{key("CFBundleIcons~ipod", primary({"Pod"})) +
                    key("CFBundleIcons~ipad", primary({"Pad"})),
                {"Pad.png"}},
           Case{key("CFBundleIcons~ipod", primary({"Pod"})) + rest, {"Pod.png"}},
           Case{key("CFBundleIcons", dict(key("CFBundlePrimaryIcon", "<string>x</string>"))) + rest,
                {"Doc.png"}},
           Case{rest, {"Doc.png"}},
           Case{key("CFBundleDocumentTypes",
                    "<array>" + dict(key("CFBundleTypeIconFiles", "<array><false/></array>")) +
                        "</array>") +
                    single,
                {"Single.png"}},
           Case{key("CFBundleDocumentTypes", names({"odd"})) + single, {"Single.png"}},
       }) {
    EXPECT_THAT(readIconsDetailsFromAppBundle(app(c.info, all), log_.logger()),
                Optional(ElementsAreArray(c.expected)))
        << c.info;
  }
  EXPECT_EQ(readIconsDetailsFromAppBundle(app("", all), log_.logger()), std::nullopt);
  EXPECT_EQ(readIconsDetailsFromAppBundle(app(topLevel, {}), log_.logger()), std::nullopt);
}

TEST_F(Icons, FindsTheFilesOfNames) {
  struct Case {
    std::string name;
    std::vector<std::string> files;
    std::string expected;
    uint32_t width;  // tells from which of the files it was made
  };
  for (const Case& c : {
           Case{"Icon", {"Icon.png"}, "Icon.png", 1},
           Case{"Icon.png", {"Icon.png", "Icon@2x.png"}, "Icon.png", 1},
           Case{"AppIcon60x60",
                {"AppIcon60x60@3x.png", "AppIcon60x60@2x.png"},
                "AppIcon60x60.png",
                2},
           Case{"AppIcon60x60",
                {"AppIcon60x60@2x~ipad.png", "AppIcon60x60-old.png"},
                "AppIcon60x60.png",
                1},
           Case{"AppIcon-183.5x83.5",
                {"AppIcon-183.5x83.5@2x~ipad.png"},
                "AppIcon-183.5x83.5.png",
                1},
           Case{"Icon.PNG", {"Icon.PNG"}, "Icon.png", 1},
           Case{"Icon@2x", {"Icon.png", "Icon@2x~ipad.png"}, "Icon@2x.png", 2},
           Case{"Icon",
                {"Icon~ipad.png", "Icon@2x~iphone.png", "Icon@3x~iphone.png"},
                "Icon.png",
                2},
           Case{"Icon", {"Icon-Small.png", "Icon-72.png"}, "Icon.png", 2},
       }) {
    SCOPED_TRACE(c.name + " " + c.expected);
    const AppBundle bundle =
        app(key("CFBundleIconFile", "<string>" + c.name + "</string>"), c.files);
    EXPECT_THAT(readIconsDetailsFromAppBundle(bundle, log_.logger()),
                Optional(ElementsAre(c.expected)));
    const std::optional<std::string> resource =
        bundle.resourcePath(c.expected.substr(0, c.expected.size() - 4), "png");
    ASSERT_TRUE(resource);
    EXPECT_EQ(LoadIconImage(*resource).xRes, std::to_string(c.width));
    // What was made is a standard file; what it was made of stays as it is.
    const bool made = listDirectory(app_)->size() == c.files.size() + 2;
    EXPECT_EQ(test::contentsOf(*resource).find("CgBI") == std::string::npos, made);
    for (const std::string& file : c.files) {
      EXPECT_NE(test::contentsOf(app_ + "/" + file).find("CgBI"), std::string::npos);
    }
    EXPECT_THAT(findAndCreateMatchingPatternForFile(c.name, app_, log_.logger()),
                Optional(c.expected));
  }
}

TEST_F(Icons, SkipsNamesWithoutAFileOfTheirOwn) {
  folder_.write("secret.png", pngFile(noisePicture(1, 1, 3)));
  const std::string list =
      "<array><string/><integer>3</integer><string>None</string><string>../secret</string>"
      "<string>Link</string><string>sub/Icon</string><string>Folder</string><string>Text</string>"
      "<string>Icon</string><string>Icon.png</string></array>";
  app(key("CFBundleIconFiles", list), {"Icon.png", "sub/Icon.png", "Folder.png/Icon.png"});
  folder_.write("A.app/Text@2x.png", "no picture");
  std::filesystem::create_symlink("../secret.png", app_ + "/Link.png");
  std::filesystem::create_symlink("../secret.png", app_ + "/Link@2x.png");
  EXPECT_THAT(readIconsDetailsFromAppBundle(*AppBundle::open(app_), log_.logger()),
              Optional(ElementsAre("Icon.png", "Icon.png")))
      << "what is listed twice is listed twice";
  EXPECT_FALSE(fileExists(app_ + "/Text.png"));
}

TEST_F(Icons, ReadsSizesOfBothForms) {
  test::PngForm standard;
  standard.optimised = false;
  const std::string header = test::pngSignature() + test::cgbiChunk();
  struct Case {
    std::string file;
    std::string width, height;
  };
  for (const Case& c : {
           Case{pngFile(noisePicture(7, 300, 3)), "7", "300"},
           Case{pngFile(noisePicture(7, 300, 3), standard), "7", "300"},
           Case{header + test::pngHeaderChunk(0x7fffffff, 1).substr(0, 16), "2147483647", "1"},
           Case{header + test::pngHeaderChunk(5, 1).substr(0, 15), "0", "0"},
           Case{header + test::pngHeaderChunk(0x80000000, 1), "0", "0"},
           Case{header + test::pngHeaderChunk(0, 1), "0", "0"},
           Case{header + header.substr(8) + test::pngHeaderChunk(5, 1), "0", "0"},
           Case{test::pngSignature() + test::bigEndian32(0xffffffff) + "CgBI", "0", "0"},
           Case{"JFIF", "0", "0"},
       }) {
    const IconResolution size = LoadIconImage(folder_.write("i.png", c.file));
    EXPECT_EQ(size.xRes, c.width);
    EXPECT_EQ(size.yRes, c.height);
    EXPECT_EQ(size.isKnown(), c.width != "0");
  }
  EXPECT_FALSE(LoadIconImage(folder_.file("none")).isKnown());
}

TEST_F(Icons, WritesSizesIntoTheManifest) {
  const auto icon = [](const std::string& name, const std::string& sizes) {
    return "<Icon>" + sizes + "<IconFile>" + name + "</IconFile></Icon>";
  };
  const auto manifest = [](const std::string& icons) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<MobileAppPackage><MobileApp><Icons>" +
           icons + "</Icons></MobileApp></MobileAppPackage>\n";
  };
  const std::string unset = "<xRes>1</xRes><yRes>1</yRes>";
  const std::string before = icon("a.png", unset) + icon("b's.png", unset);
  const std::string path = folder_.write("manifest.xml", manifest(before));
  const std::string picture = folder_.write("i.png", pngFile(noisePicture(12, 34, 4)));

  EXPECT_TRUE(ModifyIconFileRes(folder_.path(), "b's.png", picture, log_.logger()));
  const std::string after =
      icon("a.png", unset) + icon("b's.png", "<xRes>12</xRes><yRes>34</yRes>");
  EXPECT_EQ(test::contentsOf(path), manifest(after));
  for (const char* name : {"c.png", "x\" or \"1\"=\"1"}) {
    EXPECT_FALSE(ModifyIconFileRes(folder_.path(), name, picture, log_.logger()));
  }
  EXPECT_EQ(test::contentsOf(path), manifest(after));
  EXPECT_TRUE(ModifyIconFileRes(folder_.path(), "a.png", folder_.file("none"), log_.logger()));
  EXPECT_NE(test::contentsOf(path).find("<xRes>0</xRes><yRes>0</yRes>"), std::string::npos);
  EXPECT_FALSE(ModifyIconFileRes(folder_.file("none"), "a.png", picture, log_.logger()));
}

}  // namespace
}  // namespace tovrek
