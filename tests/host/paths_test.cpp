#include "host/paths.h"

#include <gtest/gtest.h>

namespace tovrek {
namespace {

TEST(Paths, Components) {
  struct Case {
    const char *path, *last, *folder, *extension, *withoutExtension;
  };
  const Case cases[] = {
      {"/a/b.app", "b.app", "/a", "app", "/a/b"},
      {"/a/b.app/", "b.app", "/a", "app", "/a/b"},
      {"b.tar.gz", "b.tar.gz", "", "gz", "b.tar"},
      {"/b", "b", "/", "", "/b"},
      {".ipa", ".ipa", "", "", ".ipa"},
      {"a.", "a.", "", "", "a."},
      {"/", "/", "/", "", "/"},
      {"", "", "", "", ""},
      {"/x.y/z", "z", "/x.y", "", "/x.y/z"},
      {"a//b.c", "b.c", "a", "c", "a//b"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(lastPathComponent(c.path), c.last);
    EXPECT_EQ(deletingLastPathComponent(c.path), c.folder);
    EXPECT_EQ(pathExtension(c.path), c.extension);
    EXPECT_EQ(deletingPathExtension(c.path), c.withoutExtension);
  }
  EXPECT_EQ(containingFolder("o.wex"), ".");
}

TEST(Paths, Standardize) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a//b/./c/", "/a/b/c"},
      {"/a/../b", "/b"},
      {"/../..", "/"},
      {"a/../b", "a/../b"},
      {"./a", "a"},
      {"/private/x", "/private/x"},
      {"", ""},
      {"a b/ü", "a b/ü"},
  };
  for (const auto& [given, wanted] : cases) EXPECT_EQ(standardizePath(given), wanted) << given;
  ::setenv("HOME", "/home/u", 1);
  EXPECT_EQ(standardizePath("~/x"), "/home/u/x");
  EXPECT_EQ(standardizePath("~no-such-user/x"), "~no-such-user/x");
}

TEST(Paths, JoinAndText) {
  EXPECT_EQ(joinPath("/a/", "/b"), "/a/b");
  EXPECT_EQ(joinPath("", "b"), "b");
  EXPECT_EQ(joinPath("/", "b"), "/b");
  EXPECT_EQ(trimmed(" \r\n x y\t\n"), "x y");
  EXPECT_EQ(trimmed("\xC2\xA0\xE3\x80\x80 x\xE2\x80\x8Ay\xE2\x80\xA8\xE2\x80\xAF\v"),
            "x\xE2\x80\x8Ay");
  EXPECT_TRUE(equalsIgnoringCase("IPA", "ipa"));
  EXPECT_FALSE(equalsIgnoringCase("ipa", "ip"));
  EXPECT_TRUE(containsIgnoringCase("a/oRVANE.plist", "Orvane.plist"));
}

}  // namespace
}  // namespace tovrek
