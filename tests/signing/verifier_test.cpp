// Judging signatures: what is damaged is found, and requirements are asked of the right place.
#include "signing/verify/Verifier.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <fstream>

#include "signing/CmsSignature.h"
#include "signing/KnownCertificates.h"
#include "signing/RequirementParser.h"
#include "signing/verify/message_check.h"
#include "tests/signing/signed_files.h"
#include "tests/support/matchers.h"

namespace tovrek::signing {
namespace {

using namespace test;  // NOLINT(google-build-using-namespace): builders all over the file

// Certificates that were read before make no difference, whichever byte of a message is damaged.
TEST(Verifier, MessagesAreReadAlikeWithKnownCertificates) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage().build());
  ASSERT_TRUE(signs(path, withIdentity()));
  const Opened opened(path);
  const CodeSignature signature = opened.signature();
  const std::string whole(signature.cms());
  const std::string_view content = signature.primary().blob();
  KnownCertificates known;
  const auto parts = withoutCertificates(whole);
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->rest.find(parts->certificates.substr(0, 64)), std::string::npos);
  ASSERT_TRUE(known.read(parts->certificates));
  size_t readable = 0;
  for (size_t at = 0; at <= whole.size(); at += at < 96 ? 1 : 17) {
    std::string message = whole;
    if (at < whole.size()) message[at] = static_cast<char>(message[at] ^ 0x81);
    const auto plain = CmsSignature::parse(message);
    const auto quick = CmsSignature::parse(message, &known);
    ASSERT_EQ(quick.has_value(), plain.has_value()) << at;
    if (!plain) continue;
    ++readable;
    const std::vector<Certificate>& chain = plain->chain().certificates();
    EXPECT_TRUE(std::ranges::equal(quick->chain().certificates(), chain, {}, &Certificate::der,
                                   &Certificate::der))
        << at;
    EXPECT_EQ(quick->isSignatureOver(content), plain->isSignatureOver(content)) << at;
    EXPECT_EQ(messageFault(signature, *quick, quick->chain()),
              messageFault(signature, *plain, plain->chain()))
        << at;
  }
  EXPECT_GT(readable, 20u);
}

TEST(Verifier, RequirementsAskTheEmbeddedInfoPlist) {
  const TemporaryFolder folder;
  const std::string path = folder.write(
      "tool",
      imageWith("<plist><dict><key>CFBundleVersion</key><string>17.10</string></dict></plist>"));
  ASSERT_TRUE(signs(path, SignOptions()));
  for (const auto& [source, expected] :
       {std::pair("info[CFBundleVersion] > 17.9", true), {"info[CFBundleVersion] = *.9", false}}) {
    VerifyOptions options;
    options.requirement = parseRequirement(source, nullptr)->blob();
    EXPECT_EQ(verifyCode(path, options).satisfiesRequirement, expected) << source;
  }
}

// Turns one bit of a file, and back when it goes.
class FlippedBit {
 public:
  FlippedBit(std::string path, size_t at) : path_(std::move(path)), at_(at) { flip(); }
  ~FlippedBit() { flip(); }
  FlippedBit(const FlippedBit&) = delete;
  FlippedBit& operator=(const FlippedBit&) = delete;

 private:
  void flip() const {
    std::fstream file(path_, std::ios::in | std::ios::out | std::ios::binary);
    const auto at = static_cast<std::streamoff>(at_);
    file.seekg(at);
    const int byte = file.get();
    file.seekp(at);
    file.put(static_cast<char>(byte ^ 1 << (at_ + at_ / 8) % 8));
    EXPECT_TRUE(file.good());
  }
  std::string path_;
  size_t at_;
};

// Code is looked at in places, the signature byte by byte with all that is in its message.
TEST(Verifier, AnyDamagedByteIsFound) {
  const TemporaryFolder folder;
  const std::string path = folder.write("tool", SignableImage::armv7().build());
  SignOptions options = withIdentity();
  options.entitlements = kEntitlementsText;
  ASSERT_TRUE(signs(path, options));
  size_t start = 0, end = 0;
  {
    const Opened opened(path);
    start = opened.file.images()[0].signature->dataoff;
    end = start + opened.signature().length();
  }
  std::string missed;
  for (size_t at = 0; at < end; at += at < start ? 397 : 1) {
    const FlippedBit flipped(path, at);
    if (verifyCode(path).valid) missed += fmt::format("{} ", at);
  }
  EXPECT_EQ(missed, "") << "signature from " << start << " to " << end;
  EXPECT_TRUE(verifyCode(path).valid);
}

// The DER form is made with the property list; a signer that lets them differ is refused.
TEST(Verifier, BothFormsOfTheEntitlementsSayTheSame) {
  const TemporaryFolder folder;
  SignOptions options;
  options.entitlements =
      "<plist><dict><key>z</key><array><integer>-129</integer><integer>18446744073709551615</"
      "integer>"
      "<integer>128</integer></array><key>a</key><dict><key>b</key><true/><key>c</"
      "key><string>\xc3\xa9"
      "</string></dict></dict></plist>";
  const std::string path = folder.write("tool", SignableImage().build());
  ASSERT_TRUE(signs(path, options));
  const auto withHashOf = [](std::string file, std::string_view blob, const std::string& changed) {
    const std::string hash = digestOf(DigestAlgorithm::kSha256, blob);
    file.replace(file.find(hash), hash.size(), digestOf(DigestAlgorithm::kSha256, changed));
    return file.replace(file.find(blob), blob.size(), changed);
  };
  const std::string good = contentsOf(path);
  const std::string der(*Opened(path).signature().component(kDerEntitlementsSlot));
  for (size_t at = kBlobHeaderSize; at < der.size(); ++at) {
    std::string changed = der;
    changed[at] = static_cast<char>(changed[at] ^ 1);
    folder.write("tool", withHashOf(good, der, changed));
    EXPECT_FALSE(verifyCode(path).valid) << at;
  }
}

}  // namespace
}  // namespace tovrek::signing
