// Signing whole files and bundles; each result goes through the verifier.
#include "signing/Signer.h"

#include <fmt/format.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "host/files.h"
#include "signing/CmsSignature.h"
#include "signing/CodeSignature.h"
#include "signing/SignatureOutput.h"
#include "tests/signing/signed_files.h"
#include "tests/support/matchers.h"

namespace tovrek::signing {
namespace {

using namespace test;  // NOLINT(google-build-using-namespace): builders all over the file

std::string refusal(const std::string& path, const SignOptions& options) {
  const std::string before = contentsOf(path);
  SignReport report;
  ErrorText error;
  if (sign(path, options, &report, &error)) return "signed";
  EXPECT_EQ(contentsOf(path), before) << "a failure left another file";
  return error.text();
}

TEST(Signer, AddsACommandAndGrowsLinkEdit) {
  struct Case {
    const char* what;
    SignableImage image;
    size_t commands, header;
  };
  const Case cases[] = {{"64 bits", SignableImage(), 72 + 80, 32},
                        {"32 bits", SignableImage::armv7(), 56 + 68, 28}};
  for (const Case& c : cases) {
    const TemporaryFolder folder;
    const std::string before = c.image.build();
    const std::string path = folder.write("tool", before);
    ASSERT_TRUE(signs(path, withIdentity())) << c.what;
    const std::string after = contentsOf(path);
    EXPECT_EQ(little32(after, 16), little32(before, 16) + 1) << c.what;
    EXPECT_EQ(little32(after, 20), little32(before, 20) + 16) << c.what;
    const size_t command = c.header + little32(before, 20);
    EXPECT_EQ(little32(after, command), 0x1du) << c.what;
    const uint32_t dataoff = little32(after, command + 8);
    EXPECT_EQ(dataoff, (before.size() + 15) / 16 * 16) << c.what;
    EXPECT_EQ(dataoff + little32(after, command + 12), after.size()) << c.what;
    EXPECT_EQ(big32(after, dataoff), 0xfade0cc0u) << c.what;
    const size_t linkEdit = c.header + c.commands;
    const bool wide = c.image.arch.is64;
    const auto field = [&](size_t index) {
      return wide ? little64(after, linkEdit + 24 + 8 * index)
                  : little32(after, linkEdit + 24 + 4 * index);
    };
    EXPECT_EQ(field(2) + field(3), after.size()) << c.what;
    EXPECT_EQ(field(1), (field(3) + 0x3fff) / 0x4000 * 0x4000) << c.what;
    // Apart from the header all code is as it was.
    EXPECT_EQ(after.substr(4096, before.size() - 4096), before.substr(4096)) << c.what;
  }
}

TEST(Signer, SigningAgainKeepsThePlace) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage().build());
  ASSERT_TRUE(signs(path, withIdentity()));
  const std::string first = contentsOf(path);
  SignOptions adhoc;
  EXPECT_EQ(refusal(path, adhoc), "is already signed");
  SignReport report;
  ErrorText error;
  ASSERT_TRUE(sign(path, withIdentity(), &report, &error)) << error.text();
  EXPECT_THAT(report.notes, ElementsAre("replacing existing signature"));
  const std::string second = contentsOf(path);
  EXPECT_EQ(second.size(), first.size());
  EXPECT_EQ(second.substr(0, 4096), first.substr(0, 4096));

  std::string broken = second;
  broken[Opened(path).file.images()[0].signature->dataoff] = 'x';
  folder.write("tool", broken);
  ASSERT_TRUE(sign(path, withIdentity(), &report, &error)) << error.text();
  EXPECT_THAT(report.notes, ElementsAre("replacing invalid existing signature"));
  EXPECT_TRUE(verifyCode(path).valid);
}

TEST(Signer, UniversalFilesAreLaidOutAnew) {
  const TemporaryFolder folder;
  const std::string path =
      folder.write("tool", buildUniversal({SignableImage::armv7(), SignableImage()}));
  SignOptions options = withIdentity();
  options.entitlements = kEntitlementsText;
  ASSERT_TRUE(signs(path, options));
  const std::string after = contentsOf(path);
  EXPECT_EQ(big32(after, 16), 0x4000u);
  EXPECT_EQ(big32(after, 24), 14u);
  EXPECT_EQ(big32(after, 36) % 0x4000, 0u);
  EXPECT_EQ(big32(after, 44), 14u);
  EXPECT_EQ(big32(after, 36) + big32(after, 40), after.size());
  const Opened opened(path);
  EXPECT_EQ(opened.file.formatText(), "Mach-O universal (armv7 arm64)");
  // One old architecture asks for SHA-1 in all of them.
  for (size_t image : {0, 1}) {
    const CodeSignature signature = opened.signature(image);
    ASSERT_EQ(signature.directories().size(), 2u);
    EXPECT_EQ(signature.directories()[0].kind().name, std::string("sha1"));
    EXPECT_EQ(signature.directories()[1].kind().name, std::string("sha256"));
    EXPECT_TRUE(signature.entitlementsText());
  }
}

TEST(Signer, EntitlementsBelongToExecutablesAlone) {
  const TemporaryFolder folder;
  SignOptions options = withIdentity();
  options.entitlements = kEntitlementsText;
  const std::string tool = folder.write("tool", SignableImage().build());
  const std::string library = folder.write("lib.dylib", SignableImage::library().build());
  ASSERT_TRUE(signs(tool, options));
  ASSERT_TRUE(signs(library, options));
  const Opened openedTool(tool);
  const Opened openedLibrary(library);
  const CodeSignature ofTool = openedTool.signature();
  const CodeSignature ofLibrary = openedLibrary.signature();
  EXPECT_EQ(ofTool.best().info().execSegFlags, 0x11u);
  EXPECT_EQ(ofTool.best().info().execSegLimit, 3u * 4096);
  EXPECT_EQ(ofTool.best().specialSlotCount(), 7u);
  EXPECT_EQ(ofLibrary.best().info().execSegFlags, 0u);
  EXPECT_EQ(ofLibrary.best().specialSlotCount(), 2u);
  EXPECT_FALSE(ofLibrary.component(kDerEntitlementsSlot));
  EXPECT_EQ(ofLibrary.best().info().identifier, "lib");
}

TEST(Signer, DigestsFollowTheDeploymentTarget) {
  struct Case {
    uint32_t minimum;
    bool is64;
    size_t directories;
  };
  const Case cases[] = {{0x000b0000, true, 1}, {0x000a0300, true, 2}, {0, true, 1}, {0, false, 2}};
  for (const Case& c : cases) {
    const TemporaryFolder folder;
    SignableImage image = c.is64 ? SignableImage() : SignableImage::armv7();
    image.minimum = c.minimum;
    const std::string path = folder.write("tool", image.build());
    ASSERT_TRUE(signs(path, withIdentity()));
    EXPECT_EQ(Opened(path).signature().directories().size(), c.directories) << c.minimum;
  }
}

TEST(Signer, AreaIsReservedByTheRule) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage().build());
  SignOptions options = withIdentity();
  options.entitlements = kEntitlementsText;
  ASSERT_TRUE(signs(path, options));
  const Opened opened(path);
  const CodeSignature signature = opened.signature();
  uint64_t size = 12 + 18000;
  for (const uint32_t slot :
       {kCodeDirectorySlot, kRequirementsSlot, kEntitlementsSlot, kDerEntitlementsSlot}) {
    size += 8 + signature.component(slot)->size();
  }
  size += 8 /* header of the longest form */ + 8 /* entry of the message */;
  EXPECT_EQ(opened.file.images()[0].signature->datasize, (size + 15) / 16 * 16);
}

TEST(Signer, MessageIsAcceptedByOpenssl) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage::armv7().build());
  ASSERT_TRUE(signs(path, withIdentity()));
  const Opened opened(path);
  const CodeSignature signature = opened.signature();
  const std::string message = folder.write("cms.der", std::string(signature.cms()));
  const std::string content = folder.write("cd", std::string(signature.primary().blob()));
  runOpenssl({"cms", "-verify", "-binary", "-inform", "DER", "-in", message, "-content", content,
              "-noverify", "-out", "/dev/null"});
  const auto cms = CmsSignature::parse(signature.cms());
  ASSERT_TRUE(cms);
  EXPECT_EQ(cms->chain().size(), 3u);
  ASSERT_TRUE(cms->cdHashesAttribute());
  EXPECT_TRUE(cms->cdHashesAttribute()->starts_with(
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
      "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n"
      "<dict>\n\t<key>cdhashes</key>\n\t<array>\n\t\t<data>\n\t\t"));
  EXPECT_TRUE(
      cms->cdHashesAttribute()->ends_with("\n\t\t</data>\n\t</array>\n</dict>\n</plist>\n"));
  ASSERT_TRUE(cms->namedHashes());
  ASSERT_EQ(cms->namedHashes()->size(), 2u);
  EXPECT_FALSE(cms->isSignatureOver(signature.best().blob()));
}

TEST(Signer, AdhocHasNoSigner) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage().build());
  ASSERT_TRUE(signs(path, SignOptions()));
  const Opened opened(path);
  const CodeSignature signature = opened.signature();
  EXPECT_TRUE(signature.isAdhoc());
  EXPECT_EQ(hexLower(*signature.component(kCmsSlot)), "fade0b0100000008");
  EXPECT_EQ(hexLower(*signature.component(kRequirementsSlot)), "fade0c010000000c00000000");
  EXPECT_EQ(signature.best().info().identifier, "tool-55554944" + hexLower("0123456789abcdef"));
}

TEST(Signer, TakesOverWhatIsToBePreserved) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage().build());
  SignOptions first = withIdentity();
  first.entitlements = kEntitlementsText;
  first.identifier = "com.example.first";
  first.flags = kRuntimeFlag;
  ASSERT_TRUE(signs(path, first));
  const std::string set(*Opened(path).signature().component(kRequirementsSlot));

  SignOptions second = withIdentity();
  second.identity = TestAuthority::shared().identityWithoutMark();
  second.preserve = {true, true, true, true, true, false};
  ASSERT_TRUE(signs(path, second));
  const Opened opened(path);
  const CodeSignature signature = opened.signature();
  EXPECT_EQ(signature.best().info().identifier, "com.example.first");
  EXPECT_EQ(signature.best().info().flags, uint32_t{kRuntimeFlag});
  EXPECT_EQ(signature.best().info().execSegFlags, 0x11u);
  EXPECT_EQ(signature.entitlementsText(), kEntitlementsText);
  EXPECT_EQ(*signature.component(kRequirementsSlot), set);
  // They name the certificate of the first signer.
  EXPECT_FALSE(verifyCode(path).satisfiesDesignated);

  SignOptions third = withIdentity();
  ASSERT_TRUE(signs(path, third));
  EXPECT_FALSE(Opened(path).signature().entitlementsText());
  EXPECT_TRUE(verifyCode(path).satisfiesDesignated);
}

TEST(Signer, TeamIsPreservedOrRefused) {
  const ScopedEnvironment trust("TOVREK_TRUSTED_ROOT_SHA1", TestAuthority::shared().rootSha1());
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage().build());
  ASSERT_TRUE(signs(path, withIdentity()));
  EXPECT_EQ(Opened(path).signature().best().info().teamId, "ABCDE12345");
  SignOptions options = withIdentity();
  options.identity = TestAuthority::shared().identityWithoutMark();
  options.preserve.teamId = true;
  EXPECT_EQ(refusal(path, options),
            "team identifier ABCDE12345 cannot be preserved: the identity is of no team");
}

TEST(Signer, RefusesWhatCannotBeSigned) {
  const std::string good = SignableImage().build();
  const auto patched = [&](size_t at, const std::string& bytes) {
    std::string image = good;
    return image.replace(at, bytes.size(), bytes);
  };
  SignableImage tight;
  tight.room = 15;
  SignableImage object;
  object.filetype = 1;
  const size_t linkEdit = 32 + 72 + 80;
  struct Case {
    std::string file;
    const char* text;
  };
  const Case cases[] = {
      {tight.build(), "not enough room in load commands to add LC_CODE_SIGNATURE"},
      {object.build(), "Mach-O file type 1 cannot be signed"},
      {"#!/bin/sh\n", "not a Mach-O file, and no bundle around it to keep a signature in"},
      {"", "not a Mach-O file, and no bundle around it to keep a signature in"},
      {good.substr(0, 20), "malformed Mach-O file: "},
      {good.substr(0, 200), "malformed Mach-O file: load commands of"},
      {good.substr(0, good.size() - 1), "segment __LINKEDIT extends past the end of the file"},
      {patched(linkEdit + 8, "__NOTHING!"), "the image has no __LINKEDIT segment"},
      {patched(36, std::string("\0\0\0\0", 4)), "malformed Mach-O file: load command 1/4"},
      {patched(36, "\xff\xff\xff\xff"), "malformed Mach-O file: load command 1/4"},
      {patched(32 + 64, "\xff\xff\xff\x7f"), "malformed Mach-O file: load command 1/4"},
      {buildUniversal({tight, SignableImage()}),
       "not enough room in load commands to add LC_CODE_SIGNATURE (architecture arm64)"},
  };
  for (const Case& c : cases) {
    const TemporaryFolder folder;
    const std::string path = folder.write("tool", c.file);
    EXPECT_THAT(refusal(path, withIdentity()), testing::StartsWith(c.text));
    EXPECT_THAT(*listDirectory(folder.path()), ElementsAre("tool"));
  }
  // Exactly enough room is enough.
  SignableImage exact;
  exact.room = 16;
  const TemporaryFolder folder;
  EXPECT_TRUE(signs(folder.write("tool", exact.build()), withIdentity()));
}

TEST(Signer, KeepsTheModeAndFollowsNoPartialWrite) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage().build());
  ASSERT_EQ(::chmod(path.c_str(), 0751), 0);
  ASSERT_TRUE(signs(path, withIdentity()));
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0751u);
  EXPECT_THAT(*listDirectory(folder.path()), ElementsAre("tool"));
}

TEST(Signer, HashesManyPagesInParallel) {
  const TemporaryFolder folder;
  SignableImage image = SignableImage::armv7();
  image.textPages = 5000;
  image.linkEditSize = 4096 + 5;
  ASSERT_TRUE(signs(folder.write("tool", image.build()), withIdentity()));
}

// Whatever a header claims, signing ends with a refusal or with a signature that holds.
TEST(Signer, DamagedHeadersDoNoHarm) {
  const TemporaryFolder folder;
  const std::string unsignedImage = imageWith("<plist/>");
  const std::string path = folder.write("tool", unsignedImage);
  ASSERT_TRUE(signs(path, SignOptions()));
  SignOptions options;
  options.force = true;
  for (const std::string& good : {unsignedImage, contentsOf(path)}) {
    const size_t end = 32 + little32(good, 20);
    for (size_t at = 0; at < end; ++at) {
      const char values[] = {'\0', '\xff', static_cast<char>(good[at] ^ 0x10)};
      std::string damaged = good;
      damaged[at] = values[at % 3];
      const std::string file = folder.write("damaged", damaged);
      SignReport report;
      ErrorText error;
      if (sign(file, options, &report, &error)) {
        EXPECT_THAT(verifyCode(file).lines, IsEmpty()) << "byte " << at;
      } else {
        EXPECT_EQ(contentsOf(file), damaged) << "byte " << at;
      }
    }
  }
}

TEST(Signer, RemovalRestoresTheImage) {
  const TemporaryFolder folder;
  for (const SignableImage& image : {SignableImage(), SignableImage::armv7()}) {
    const std::string before = image.build();
    const std::string path = folder.write("tool", before);
    ASSERT_TRUE(signs(path, withIdentity()));
    ErrorText error;
    {
      const Opened opened(path);
      ASSERT_TRUE(removeSignatures(opened.object, opened.file, &error)) << error.text();
    }
    const std::string after = contentsOf(path);
    EXPECT_EQ(little32(after, 16), little32(before, 16));
    EXPECT_EQ(little32(after, 20), little32(before, 20));
    EXPECT_EQ(after.substr(4096, before.size() - 4096), before.substr(4096));
    EXPECT_EQ(verifyCode(path).lines.front(), "code object is not signed at all");
    EXPECT_TRUE(signs(path, withIdentity()));
  }
}

}  // namespace
}  // namespace tovrek::signing
