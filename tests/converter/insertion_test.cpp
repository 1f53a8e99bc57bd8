#include "converter/insertion.h"

#include <unistd.h>

#include "converter/common.h"
#include "tests/converter/ConverterTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

class Copying : public ConverterTest {
 protected:
  void link(const std::string& target, const std::string& name) {
    EXPECT_EQ(::symlink(target.c_str(), folder.file(name).c_str()), 0);
  }
};

TEST_F(Copying, BundleReplacesWhatStandsThere) {
  const std::string source = folder.file("Data/OrvaneDylib.bundle");
  const std::string target = app() + "/OrvaneDylib.bundle";
  write("Data/OrvaneDylib.bundle/OrvaneDylib.dylib", "new");
  write("outside/kept", "");
  link(folder.file("outside"), "Demo.app/OrvaneDylib.bundle");
  EXPECT_TRUE(copyOrvaneBundle(log(), source, target, &error)) << error.text();
  EXPECT_FALSE(isSymbolicLink(target));
  write("Demo.app/OrvaneDylib.bundle/stale", "");
  EXPECT_TRUE(copyOrvaneLoggerFramework(log(), source, target, &error));
  EXPECT_FALSE(fileExists(target + "/stale"));
  EXPECT_EQ(listDirectory(folder.file("outside"))->size(), 1U);

  EXPECT_FALSE(copyOrvaneBundle(log(), "/nowhere", target, &error));
  EXPECT_EQ(error.text(),
            "Failed to copy file from /nowhere to " + target + ". Error:No such file or directory");
}

TEST_F(Copying, FrameworksFolder) {
  EXPECT_TRUE(createAppBundleFrameworksSubdirectory(log(), app() + "/a/Frameworks", &error));
  EXPECT_TRUE(isDirectory(app() + "/a/Frameworks"));
  EXPECT_FALSE(createAppBundleFrameworksSubdirectory(log(), app() + "/Demo/x", &error));
  EXPECT_THAT(error.text(),
              HasSubstr("Failed to create application bundle Frameworks subdirectory. Error:"));
}

TEST_F(Copying, ProfileIsReplaced) {
  const std::string outside = write("outside", "untouched");
  link(outside, "Demo.app/embedded.mobileprovision");
  request.provisionProfile = write("p.mobileprovision", "profile");
  EXPECT_TRUE(replaceProvisioningProfileAtDir(run(), app(), &error)) << error.text();
  EXPECT_EQ(contentsOf(app() + "/embedded.mobileprovision"), "profile");
  EXPECT_EQ(contentsOf(outside), "untouched");
  request.provisionProfile = "/nowhere";
  EXPECT_FALSE(replaceProvisioningProfileAtDir(run(), app(), &error));
  EXPECT_EQ(error.text(), "A required file at this location does not exist: /nowhere");
}

TEST_F(Copying, RebuildKeepsWarningsAndGivesReasons) {
  error.set("warning");
  EXPECT_FALSE(MachORebuild(run(), "/nowhere", ExecutableKind::kApplication, &error));
  EXPECT_NE(error.text(), "warning");
  EXPECT_FALSE(error.text().empty());
}

TEST_F(Copying, ExecutableStaysInsideItsBundle) {
  const std::string outside = write("outside", std::string(4096, 'x'));
  for (const std::string& name : {std::string("../outside"), outside}) {
    PlistDictionary info;
    info.set("CFBundleExecutable", name);
    write("Demo.app/Info.plist", serializePlist(info, PlistFormat::kXml));
    EXPECT_FALSE(MachORebuild(run(), app(), ExecutableKind::kApplication, &error));
    EXPECT_EQ(contentsOf(outside), std::string(4096, 'x'));
  }
}

}  // namespace
}  // namespace tovrek::test
