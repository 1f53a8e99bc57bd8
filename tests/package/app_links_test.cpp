#include "package/app_links.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "host/files.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {
namespace {

constexpr char kBeside[] = "it lies beside the app";
constexpr char kPlace[] = "it stands in place of a file or folder of the app";
constexpr char kAbsolute[] = "its target is absolute";
constexpr char kOutside[] = "its target lies outside of the app";
constexpr char kThrough[] = "it leads through another link";

class AppLinks : public ::testing::Test {
 protected:
  void SetUp() override {
    folder.write("Payload/A.app/sub/file", "");
    folder.write("Payload/A.app/PlugIns/P.appex/Info.plist", "");
    folder.write("Payload/B.app/Info.plist", "");
    createDirectories(folder.file("Payload/A.app/Frameworks/F.framework"));
    link("sub", "Payload/A.app/link");
  }
  void link(const std::string& target, const std::string& name) const {
    ASSERT_EQ(::symlink(target.c_str(), folder.file(name).c_str()), 0);
  }

  TemporaryFolder folder;
  const std::optional<std::string> app = "Payload/A.app";
  FoundLinks found;
  ErrorText error;
};

TEST_F(AppLinks, AcceptedOnes) {
  for (const char* target :
       {"file", "../sub", "..", ".//file", "../PlugIns/P.appex/../../sub", "../none/", "x"}) {
    SCOPED_TRACE(target);
    link(target, "Payload/A.app/sub/tested");
    ASSERT_TRUE(judgeLinks(folder.path(), app, &found, &error)) << error.text();
    EXPECT_EQ(found.refused, std::nullopt);
    const bool dangles = !fileExists(folder.file("Payload/A.app/sub/tested"));
    EXPECT_EQ(found.dangling.size(), dangles ? 1U : 0U);
    removeItem(folder.file("Payload/A.app/sub/tested"));
  }
}

TEST_F(AppLinks, RefusedOnes) {
  const struct {
    const char* name;  // in Payload
    const char* target;
    const char* reason;
  } cases[] = {{"A.app/sub/l", "/etc", kAbsolute},
               {"A.app/sub/l", "../..", kOutside},
               {"A.app/sub/l", "../../A.app/sub/file", kOutside},
               {"A.app/l", "../none", kOutside},
               {"A.app/l", "none/../../../etc", kOutside},
               {"A.app/l", "link", kThrough},
               {"A.app/l", "link/file", kThrough},
               {"A.app/l", "sub/../link/..", kThrough},
               {"A.app/l", "l", kThrough},
               {"l", "A.app/sub", kBeside},
               {"../l", "Payload", kBeside},
               {"B.app/l", "Info.plist", kBeside},
               {"A.app/Info.plist", "sub/file", kPlace},
               {"A.app/A", "sub/file", kPlace},
               {"A.app/_CodeSignature", "sub", kPlace},
               {"A.app/OrvaneDylib.bundle", "none", kPlace},
               {"A.app/PlugIns/Q.appex", "P.appex", kPlace},
               {"A.app/PlugIns/P.appex/P", "Info.plist", kPlace},
               {"A.app/PlugIns/P.appex/Frameworks", "../../Frameworks", kPlace},
               {"A.app/Frameworks/F.framework/_CodeSignature", "none", kPlace},
               {"A.app/Frameworks/G.framework", "F.framework", kPlace}};
  for (const auto& c : cases) {
    const std::string path = folder.file(std::string("Payload/") + c.name);
    SCOPED_TRACE(std::string(c.name) + " -> " + c.target);
    ASSERT_EQ(::symlink(c.target, path.c_str()), 0);
    ASSERT_TRUE(judgeLinks(folder.path(), app, &found, &error)) << error.text();
    EXPECT_THAT(found.refused.value_or(""), ::testing::EndsWith(std::string("(") + c.reason + ")"));
    removeItem(path);
  }
}

TEST_F(AppLinks, FoldersAndPackages) {
  EXPECT_TRUE(refuseLinks(folder.file("Payload/A.app"), "", nullptr, &error)) << error.text();
  EXPECT_FALSE(refuseLinks(folder.path(), std::nullopt, nullptr, &error));
  EXPECT_EQ(error.text(),
            "The input holds a link that is not accepted: Payload/A.app/link (packages hold no "
            "links)");
  error.clear();
  EXPECT_FALSE(refuseLinks(folder.file("none"), "", nullptr, &error));
  EXPECT_EQ(error.text(), folder.file("none") + ": No such file or directory");
}

}  // namespace
}  // namespace tovrek::test
