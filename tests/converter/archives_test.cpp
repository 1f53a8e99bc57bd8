#include "converter/archives.h"

#include <fmt/format.h>
#include <unistd.h>

#include <functional>

#include "converter/steps.h"
#include "host/process.h"
#include "package/TemporaryDirectory.h"
#include "package/UnzippedCma.h"
#include "tests/converter/ConverterTest.h"
#include "tests/support/matchers.h"

namespace tovrek::test {
namespace {

// Names in an archive, sorted; the real unzip lists them.
std::vector<std::string> namesIn(const std::string& archive) {
  Outcome outcome;
  runProcess({.argv = {"/usr/bin/unzip", "-Z1", archive}}, &outcome);
  std::vector<std::string> names;
  std::istringstream lines(outcome.output);
  for (std::string line; std::getline(lines, line);) names.push_back(line);
  std::sort(names.begin(), names.end());
  return names;
}

class Archives : public ConverterTest {
 protected:
  Archives() {
    write("source/Payload/Demo.app/Info.plist", "");
    createDirectories(folder.file("source/Payload/Demo.app/empty"));
    createDirectories(folder.file("target"));
    request.outputFile = folder.file("out/Demo.wex");
    createDirectories(folder.file("out"));
  }
  bool zipToIpa(const std::string& name) {
    return ZipToIpa(run(), name, folder.file("source"), folder.file("target"), &error);
  }
};

TEST_F(Archives, IpaHoldsThePayloadWithItsLinks) {
  EXPECT_EQ(::symlink("Info.plist", folder.file("source/Payload/Demo.app/link").c_str()), 0);
  write("source/notes.txt", "");
  write("target/Demo.ipa", "old");
  ASSERT_TRUE(zipToIpa("Demo.ipa")) << error.text();
  EXPECT_THAT(namesIn(folder.file("target/Demo.ipa")),
              ElementsAre("Payload/", "Payload/Demo.app/", "Payload/Demo.app/Info.plist",
                          "Payload/Demo.app/empty/", "Payload/Demo.app/link"));
  Outcome outcome;
  runProcess({.argv = {"/usr/bin/unzip", "-Z", folder.file("target/Demo.ipa"), "*/link"}},
             &outcome);
  EXPECT_EQ(outcome.output.substr(0, 1), "l");
}

TEST_F(Archives, ArgumentsOfTheIpa) {
  host.addTool("zip", "touch \"$2\"");
  write("source/iTunesArtwork", "");
  EXPECT_TRUE(zipToIpa("Demo.ipa"));
  write("source/iTunesMetadata.plist", "");
  createDirectories(folder.file("other/iTunesArtwork"));
  EXPECT_TRUE(zipToIpa("-TTx.ipa"));  // names are no options
  EXPECT_THAT(host.allCalls(),
              ElementsAre("zip|-qry|Demo.ipa|Payload|iTunesArtwork",
                          "zip|-qry|./-TTx.ipa|Payload|iTunesArtwork|iTunesMetadata.plist"));
  EXPECT_TRUE(fileExists(folder.file("target/-TTx.ipa")));

  TemporaryDirectory directory;
  ASSERT_TRUE(directory.CreateTempDirForCma(&error));
  const auto package = UnzippedCma::initWithCma("x.wex", directory);
  package->setIpaName("Inner.ipa");
  host.forgetCalls();
  EXPECT_TRUE(
      ZipToIpaFromWex(run(), folder.file("other"), *package, folder.file("target"), &error));
  EXPECT_THAT(host.allCalls(), ElementsAre("zip|-qr|Inner.ipa|Payload"));
}

TEST_F(Archives, ZipLearnsWhereTheAppCameFrom) {
  host.addTool("zip", "cat \"$TOVREK_PACKED_SOURCE\" >\"$2\"");
  request.inputFile = write("input.ipa", "the input");
  ASSERT_TRUE(zipToIpa("Demo.ipa")) << error.text();
  EXPECT_EQ(contentsOf(folder.file("target/Demo.ipa")), "the input");

  // The app of a package came from an archive of the name that the new one gets.
  TemporaryDirectory directory;
  ASSERT_TRUE(directory.CreateTempDirForCma(&error));
  const auto package = UnzippedCma::initWithCma("x.wex", directory);
  package->setIpaName("Inner.ipa");
  package->setIpaPath(write("source/Inner.ipa", "the inner app"));
  ASSERT_TRUE(
      ZipToIpaFromWex(run(), folder.file("source"), *package, folder.file("target"), &error));
  EXPECT_EQ(contentsOf(folder.file("target/Inner.ipa")), "the inner app");
  EXPECT_THAT(*listDirectory(folder.file("source")), ElementsAre("Payload"));
}

TEST_F(Archives, IpaOfAFailingZipIsMissing) {
  const std::string old = write("target/Demo.ipa", "old");
  for (const char* script : {"exit 12", "touch \"$2\"; exit 18", "exit 0", "kill -9 $$"}) {
    host.addTool("zip", script);
    error.clear();
    EXPECT_FALSE(zipToIpa("Demo.ipa")) << script;
    EXPECT_EQ(error.text(), "A required file at this location does not exist: " + old) << script;
    EXPECT_EQ(contentsOf(old), "old");
  }
}

TEST_F(Archives, IpaThatCameWithTheInputIsReplaced) {
  const std::string outside = write("outside.zip", "untouched");
  ASSERT_EQ(::symlink(outside.c_str(), folder.file("source/Demo.ipa").c_str()), 0);
  EXPECT_TRUE(zipToIpa("Demo.ipa"));
  EXPECT_EQ(contentsOf(outside), "untouched");
  EXPECT_EQ(namesIn(folder.file("target/Demo.ipa")).size(), 4U);
}

TEST_F(Archives, IpaThatCannotBeCopied) {
  createDirectories(folder.file("target/Demo.ipa"));
  EXPECT_FALSE(zipToIpa("Demo.ipa"));
  EXPECT_THAT(error.text(),
              HasSubstr("Failed to copy file from " + folder.file("source/Demo.ipa")));
}

TEST_F(Archives, PackageOfAFolder) {
  write("package/manifest.xml", "");
  write("package/sub/icon.png", "");
  write("out/Demo.wex", "old");
  ASSERT_TRUE(ZiptoPackage(run(), folder.file("package"), &error)) << error.text();
  EXPECT_THAT(namesIn(*request.outputFile), ElementsAre("manifest.xml", "sub/", "sub/icon.png"));
}

TEST_F(Archives, PackageFailures) {
  write("package/manifest.xml", "");
  host.addTool("zip", "exit 12");
  EXPECT_FALSE(ZiptoPackage(run(), folder.file("package"), &error));
  EXPECT_EQ(error.text(), "Failed to execute zip with exit code: 12");
  EXPECT_THAT(host.allCalls(), ElementsAre(MatchesRegex("zip\\|-qr\\|[0-9A-F-]{36}\\.zip\\|\\.")));
  host.addTool("zip");
  EXPECT_FALSE(ZiptoPackage(run(), folder.file("package"), &error));
  EXPECT_THAT(error.text(), HasSubstr("Failed to generate this file: " + folder.path()));
  host.addTool("zip", "touch \"$2\"");
  request.outputFile = "/nowhere/x.wex";
  EXPECT_FALSE(ZiptoPackage(run(), folder.file("package"), &error));
  EXPECT_THAT(error.text(), HasSubstr("to /nowhere/x.wex. Error:No such file or directory"));
  // What stands there counts, be it a folder.
  request.outputFile = folder.file("out");
  EXPECT_TRUE(ZiptoPackage(run(), folder.file("package"), &error));
}

// The name of the output has room in its folder, that of a file beside it has not.
TEST_F(Archives, OldOutputThatCannotBeReplacedStays) {
  write("package/manifest.xml", "");
  std::string deep = folder.file("deep");
  while (deep.size() < 4080) {
    deep += "/" + std::string(std::min<size_t>(200, 4080 - deep.size()), 'd');
  }
  ASSERT_TRUE(createDirectories(deep));
  const std::string old = write("old", "old");
  request.outputFile = deep + "/to";
  ASSERT_EQ(::link(old.c_str(), request.outputFile->c_str()), 0);
  EXPECT_FALSE(ZiptoPackage(run(), folder.file("package"), &error));
  EXPECT_THAT(error.text(), ::testing::AllOf(::testing::StartsWith("Failed to copy file from "),
                                             ::testing::EndsWith("/to. Error:File name too long")));
  EXPECT_EQ(contentsOf(*request.outputFile), "old");
}

TEST_F(Archives, OutputsAreReplacedByNewFiles) {
  const std::string app = write("made/app.ipa", "app");
  write("package/manifest.xml", "");
  const std::string log = write("log", "");
  context.loggers.toolkit.setLogFilename(log);
  auto flow = run();
  flow.ipaFolder = folder.file("made");
  flow.outputIPAFileName = "app.ipa";
  const struct {
    std::function<bool()> write;
    std::string warning;
  } cases[] = {{[&] { return ZiptoPackage(flow, folder.file("package"), &error); },
                "WARNING! The target output file already exists. Deleting original file."},
               {[&] { return copyOutputBundle(flow, &error); },
                "WARNING! The target bundle output file already exists. Deleting original file."},
               {[&] { return deliverIpa(flow, &error); }, ""}};
  for (const bool isInput : {false, true}) {
    for (const auto& c : cases) {
      write("log", "");
      removeItem(folder.file("out/Demo.wex"));
      const std::string old = write(isInput ? "input" : "old", "old");
      ASSERT_TRUE(itemExistsNoFollow(folder.file("out/Demo.wex")) ||
                  ::link(old.c_str(), folder.file("out/Demo.wex").c_str()) == 0);
      request.inputFile = isInput ? folder.file("out/Demo.wex") : folder.file("other");
      request.outputFile = request.outputBundleFile = folder.file("out/Demo.wex");
      ASSERT_TRUE(c.write()) << error.text();
      EXPECT_EQ(contentsOf(old), "old");
      EXPECT_NE(contentsOf(folder.file("out/Demo.wex")), "old");
      const std::string logged = contentsOf(log);
      EXPECT_EQ(logged.find("WARNING!") != std::string::npos, !c.warning.empty());
      EXPECT_THAT(logged, HasSubstr(c.warning));
      removeItem(old);
    }
  }
  EXPECT_EQ(contentsOf(app), "app");
}

TEST_F(Archives, PackageWithoutItsManifestIsNotWritten) {
  request.inputFile = write("input.ipa", "");
  auto flow = run();
  flow.input.directory = std::make_shared<TemporaryDirectory>();
  ASSERT_TRUE(flow.input.directory->Create(&error));
  createDirectories(flow.packageDir());
  writeFileAtomically(joinPath(flow.packageDir(), "policy_metadata.xml"), "");
  write("out/Demo.wex", "old");
  EXPECT_FALSE(writePackage(flow, &error));
  EXPECT_EQ(error.text(), "A required file at this location does not exist: " +
                              joinPath(flow.packageDir(), "manifest.xml"));
  EXPECT_EQ(contentsOf(*request.outputFile), "old");
}

}  // namespace
}  // namespace tovrek::test
