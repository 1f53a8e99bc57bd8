// Bundles: what their seal lists, and what the verifier says of later changes.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>

#include "formats/Digest.h"
#include "host/files.h"
#include "signing/CodeSignature.h"
#include "signing/Signer.h"
#include "signing/verify/Verifier.h"
#include "tests/support/SignableImage.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/matchers.h"

namespace tovrek::signing {
namespace {

using namespace test;  // NOLINT(google-build-using-namespace): builders all over the file

constexpr const char* kInfo =
    "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key><string>Demo</string>"
    "<key>CFBundleIdentifier</key><string>com.example.demo</string>"
    "<key>CFBundlePackageType</key><string>APPL</string></dict></plist>";

// An app with one of each kind of file.
class BundleTest : public testing::Test {
 protected:
  BundleTest() {
    write("Info.plist", kInfo);
    write("PkgInfo", "APPL????");
    write("Demo", SignableImage().build());
    write("a & b.txt", "text");
    write("en.lproj/x.strings", "english");
    write("en.lproj/locversion.plist", "version");
    write("Base.lproj/y.nib", "base");
    write("sub/.DS_Store", "junk");
    write("Frameworks/F.framework/Info.plist", kInfo);
    write("Frameworks/F.framework/_CodeSignature/CodeResources", "nested seal");
    write("_CodeSignature/old", "left over");
    EXPECT_EQ(::symlink("a & b.txt", (app() + "/link").c_str()), 0);
  }

  std::string app() const { return folder_.file("Demo.app"); }
  void write(const std::string& name, const std::string& contents) const {
    folder_.write("Demo.app/" + name, contents);
  }
  bool sign(const SignOptions& options = {}, ErrorText* error = nullptr) {
    return signing::sign(app(), options, &report_, error);
  }
  PlistDictionary seal() const {
    return *readPlistDictionary(app() + "/_CodeSignature/CodeResources");
  }
  static std::vector<std::string> keysOf(const PlistDictionary& dictionary, const char* key) {
    std::vector<std::string> keys;
    for (const auto& entry : *dictionaryForKey(dictionary, key)) keys.push_back(entry.first);
    return keys;
  }

  TemporaryFolder folder_;
  SignReport report_;
};

TEST_F(BundleTest, SealListsWhatTheRulesName) {
  ASSERT_TRUE(sign());
  EXPECT_EQ(report_.format, "app bundle with Mach-O thin (arm64)");
  EXPECT_EQ(report_.identifier, "com.example.demo");
  EXPECT_THAT(keysOf(seal(), "files"),
              ElementsAre("Base.lproj/y.nib", "Frameworks/F.framework/Info.plist",
                          "Frameworks/F.framework/_CodeSignature/CodeResources", "Info.plist",
                          "PkgInfo", "a & b.txt", "en.lproj/x.strings", "sub/.DS_Store"));
  EXPECT_THAT(keysOf(seal(), "files2"),
              ElementsAre("Base.lproj/y.nib", "Frameworks/F.framework/Info.plist",
                          "Frameworks/F.framework/_CodeSignature/CodeResources", "a & b.txt",
                          "en.lproj/x.strings", "link"));
  EXPECT_EQ(keysOf(seal(), "rules2").size(), 10u);
  const PlistDictionary sealed = seal();
  const PlistDictionary& files2 = *dictionaryForKey(sealed, "files2");
  PlistDictionary plain;
  plain.set("hash2", PlistValue::Data{digestOf(DigestAlgorithm::kSha256, "text")});
  EXPECT_EQ(*files2.find("a & b.txt"), PlistValue(plain));
  PlistDictionary optional;
  optional.set("hash2", PlistValue::Data{digestOf(DigestAlgorithm::kSha256, "english")});
  optional.set("optional", true);
  EXPECT_EQ(*files2.find("en.lproj/x.strings"), PlistValue(optional));
  PlistDictionary link;
  link.set("symlink", "a & b.txt");
  EXPECT_EQ(*files2.find("link"), PlistValue(link));
  EXPECT_EQ(*dictionaryForKey(sealed, "files")->find("a & b.txt"),
            PlistValue(PlistValue::Data{digestOf(DigestAlgorithm::kSha1, "text")}));
  EXPECT_THAT(*listDirectory(app() + "/_CodeSignature"), ElementsAre("CodeResources"));
  EXPECT_TRUE(verifyCode(app()).valid);
}

TEST_F(BundleTest, OldSystemsGetBothHashes) {
  write("Demo", SignableImage::armv7().build());
  ASSERT_TRUE(sign());
  const PlistDictionary sealed = seal();
  const auto* entry = dictionaryForKey(sealed, "files2")->find("Base.lproj/y.nib")->dictionary();
  EXPECT_EQ(*entry->find("hash"),
            PlistValue(PlistValue::Data{digestOf(DigestAlgorithm::kSha1, "base")}));
  EXPECT_TRUE(entry->contains("hash2"));
  EXPECT_TRUE(verifyCode(app()).valid);
}

TEST_F(BundleTest, VerifierNamesEachChange) {
  struct Case {
    const char* what;
    std::function<void()> change;
    std::vector<std::string> lines;  // of the verdict; "%" is the app
  };
  const std::string resource = "a sealed resource is missing or invalid";
  const std::string plist = "invalid Info.plist (plist or signature have been modified)";
  const Case cases[] = {
      {"modified", [&] { write("a & b.txt", "Text"); }, {resource, "file modified: %/a & b.txt"}},
      {"removed",
       [&] { removeItem(app() + "/Base.lproj/y.nib"); },
       {resource, "file missing: %/Base.lproj/y.nib"}},
      {"added", [&] { write("sub/new", ""); }, {resource, "file added: %/sub/new"}},
      {"optional removed", [&] { removeItem(app() + "/en.lproj/x.strings"); }, {}},
      {"unsealed added", [&] { write("x/.DS_Store", ""); }, {}},
      {"link turned",
       [&] {
         removeItem(app() + "/link");
         EXPECT_EQ(::symlink("PkgInfo", (app() + "/link").c_str()), 0);
       },
       {resource, "file modified: %/link"}},
      {"link became its target",
       [&] {
         removeItem(app() + "/link");
         write("link", "text");
       },
       {resource, "file modified: %/link"}},
      {"Info.plist", [&] { write("Info.plist", std::string(kInfo) + "\n"); }, {plist}},
      {"seal",
       [&] { write("_CodeSignature/CodeResources", "<plist/>"); },
       {"invalid signature (code or signature have been modified)"}},
      {"no seal",
       [&] { removeItem(app() + "/_CodeSignature"); },
       {"code has no resources but signature indicates they must be present"}},
  };
  ASSERT_TRUE(sign());
  const std::string kept = folder_.file("kept");
  ASSERT_TRUE(copyItem(app(), kept));
  for (const Case& c : cases) {
    ASSERT_TRUE(removeItem(app()) && copyItem(kept, app()));
    c.change();
    std::vector<std::string> expected;
    for (std::string line : c.lines) {
      if (const size_t at = line.find('%'); at != std::string::npos)
        line.replace(at, 1, *realPath(app()));
      expected.push_back(line);
    }
    const Verdict verdict = verifyCode(app());
    EXPECT_EQ(verdict.lines, expected) << c.what;
    EXPECT_EQ(verdict.valid, c.lines.empty()) << c.what;
  }
}

TEST_F(BundleTest, AnyDamagedByteIsFound) {
  ASSERT_TRUE(sign());
  for (const char* name :
       {"Info.plist", "a & b.txt", "Base.lproj/y.nib", "_CodeSignature/CodeResources"}) {
    const std::string good = contentsOf(app() + "/" + name);
    ASSERT_FALSE(good.empty()) << name;
    for (size_t at = 0; at < good.size(); at += 1 + good.size() / 60) {
      std::string damaged = good;
      damaged[at] = static_cast<char>(damaged[at] ^ (1 << at % 8));
      write(name, damaged);
      EXPECT_FALSE(verifyCode(app()).valid) << name << ", byte " << at;
    }
    write(name, good);
  }
  EXPECT_TRUE(verifyCode(app()).valid);
}

TEST_F(BundleTest, StrictRefusesLinksThatLeadOut) {
  ASSERT_EQ(::symlink("/etc/passwd", (app() + "/outward").c_str()), 0);
  ASSERT_TRUE(sign());
  EXPECT_TRUE(verifyCode(app()).valid);
  VerifyOptions options;
  options.strict = true;
  EXPECT_EQ(verifyCode(app(), options).lines,
            (std::vector<std::string>{"invalid destination for symbolic link in bundle",
                                      "file modified: " + *realPath(app()) + "/outward"}));
}

// Seals of other signers can name code inside by its requirement.
TEST_F(BundleTest, NestedCodeIsHeldAgainstItsRequirement) {
  const std::string inner = app() + "/inner";
  const auto sealNested = [&](const std::string& requirement) {
    write("inner", SignableImage().build());
    SignOptions options;
    options.identifier = "com.example.inner";
    ErrorText error;
    ASSERT_TRUE(signing::sign(inner, options, &report_, &error)) << error.text();
    options.force = true;
    options.identifier.reset();
    ASSERT_TRUE(signing::sign(app(), options, &report_, &error)) << error.text();
    // The seal is rewritten as other signers have it, and the code directory is made to fit.
    std::string text = contentsOf(app() + "/_CodeSignature/CodeResources");
    const size_t files2 = text.find("<key>files2</key>");
    const size_t entry = text.find("<key>inner</key>", files2);
    const size_t from = text.find("<dict>", entry) + 6;
    text.replace(from, text.find("</dict>", entry) - from,
                 "<key>cdhash</key><data>AAAA</data><key>requirement</key><string>" + requirement +
                     "</string>");
    const std::string before = contentsOf(app() + "/_CodeSignature/CodeResources");
    std::string code = contentsOf(app() + "/Demo");
    const std::string oldHash = digestOf(DigestAlgorithm::kSha256, before);
    ASSERT_NE(code.find(oldHash), std::string::npos);
    code.replace(code.find(oldHash), oldHash.size(), digestOf(DigestAlgorithm::kSha256, text));
    write("_CodeSignature/CodeResources", text);
    write("Demo", code);
  };
  sealNested("identifier \"com.example.inner\"");
  EXPECT_THAT(verifyCode(app()).lines, IsEmpty());
  write("inner", contentsOf(inner) + "x");
  EXPECT_THAT(verifyCode(app()).lines, IsEmpty());
  std::string damaged = contentsOf(inner);
  damaged[damaged.size() / 4] ^= 1;
  write("inner", damaged);
  const std::vector<std::string> refusal = {"nested code is modified or invalid",
                                            "In subcomponent: " + *realPath(app()) + "/inner"};
  EXPECT_EQ(verifyCode(app()).lines, refusal);
  for (const char* requirement : {"identifier \"com.example.other\"", "nonsense"}) {
    sealNested(requirement);
    EXPECT_EQ(verifyCode(app()).lines, refusal) << requirement;
  }
}

TEST_F(BundleTest, ExecutableStandsForItsBundle) {
  ErrorText error;
  ASSERT_TRUE(signing::sign(app() + "/Demo", {}, &report_, &error)) << error.text();
  EXPECT_EQ(report_.format, "app bundle with Mach-O thin (arm64)");
  EXPECT_TRUE(fileExists(app() + "/_CodeSignature/CodeResources"));
  write("stray.dylib", SignableImage::library().build());
  ASSERT_TRUE(signing::sign(app() + "/stray.dylib", {}, &report_, &error)) << error.text();
  EXPECT_EQ(report_.format, "Mach-O thin (arm64)");
}

TEST_F(BundleTest, FailureLeavesSealAndCode) {
  ASSERT_TRUE(sign());
  SignableImage tight;
  tight.room = 0;
  write("Demo", tight.build());
  write("new", "new");
  const std::string before = contentsOf(app() + "/_CodeSignature/CodeResources");
  ErrorText error;
  EXPECT_FALSE(sign({}, &error));
  EXPECT_EQ(error.text(), "not enough room in load commands to add LC_CODE_SIGNATURE");
  EXPECT_EQ(contentsOf(app() + "/_CodeSignature/CodeResources"), before);
  EXPECT_EQ(contentsOf(app() + "/Demo"), tight.build());

  removeItem(app() + "/_CodeSignature");
  EXPECT_FALSE(sign({}, &error));
  EXPECT_FALSE(fileExists(app() + "/_CodeSignature"));
}

TEST_F(BundleTest, RefusesFoldersThatAreNoFlatBundles) {
  ErrorText error;
  const std::string text = "bundle format unrecognized, invalid, or unsuitable";
  folder_.write("Mac.app/Contents/Info.plist", kInfo);
  folder_.write("Out.app/Info.plist",
                "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key>"
                "<string>../Demo.app/Demo</string></dict></plist>");
  for (const char* name : {"Mac.app", "Out.app"}) {
    EXPECT_FALSE(signing::sign(folder_.file(name), {}, &report_, &error));
    EXPECT_EQ(error.text(), text) << name;
  }
  EXPECT_FALSE(signing::sign(folder_.file("none.app"), {}, &report_, &error));
  EXPECT_EQ(error.text(), "No such file or directory");
  ASSERT_EQ(::mkfifo((app() + "/pipe").c_str(), 0600), 0);
  EXPECT_FALSE(sign({}, &error));
  EXPECT_EQ(error.text(), "pipe: special files cannot be sealed");
}

TEST_F(BundleTest, CodeThatIsNoMachOKeepsItsSignatureBeside) {
  struct Case {
    const char* name;
    const char* executable;  // null: none
    const char* format;
  };
  for (const Case& c : {Case{"Static.framework", "!<arch>\n", "bundle with generic"},
                        Case{"Data.framework", nullptr, "bundle"}}) {
    const std::string name = c.name;
    folder_.write(name + "/Info.plist",
                  "<plist version=\"1.0\"><dict><key>CFBundleExecutable</key>"
                  "<string>Code</string></dict></plist>");
    if (c.executable != nullptr) folder_.write(name + "/Code", c.executable);
    folder_.write(name + "/picture", "pixels");
    ErrorText error;
    ASSERT_TRUE(signing::sign(folder_.file(name), {}, &report_, &error)) << error.text();
    EXPECT_EQ(report_.format, c.format);
    EXPECT_THAT(*listDirectory(folder_.file(name) + "/_CodeSignature"),
                ElementsAre("CodeDirectory", "CodeRequirements", "CodeResources", "CodeSignature"));
    EXPECT_THAT(verifyCode(folder_.file(name)).lines, IsEmpty());
    folder_.write(name + "/picture", "Pixels");
    EXPECT_FALSE(verifyCode(folder_.file(name)).valid);
  }
}

TEST_F(BundleTest, OwnRulesReplaceTheUsualOnes) {
  PlistDictionary source;
  PlistDictionary rules;
  rules.set("^only", true);
  source.set("rules", rules);
  SignOptions options;
  options.resourceRules = source;
  write("only this", "x");
  ASSERT_TRUE(sign(options));
  EXPECT_THAT(keysOf(seal(), "files"), ElementsAre("only this"));
  EXPECT_TRUE(verifyCode(app()).valid);

  source.set("rules", "all of them");
  options.resourceRules = source;
  options.force = true;
  ErrorText error;
  EXPECT_FALSE(sign(options, &error));
  EXPECT_EQ(error.text(), "invalid resource specification rule(s)");
}

}  // namespace
}  // namespace tovrek::signing
