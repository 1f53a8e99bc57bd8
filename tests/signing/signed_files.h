// What the tests of signing and of judging signatures have in common.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "signing/CodeSignature.h"
#include "signing/Signer.h"
#include "signing/verify/Verifier.h"
#include "tests/signing/TestAuthority.h"
#include "tests/support/SignableImage.h"

namespace tovrek::test {

inline constexpr const char* kEntitlementsText =
    "<plist version=\"1.0\"><dict><key>get-task-allow</key><true/></dict></plist>";

inline signing::SignOptions withIdentity() {
  signing::SignOptions options;
  options.identity = TestAuthority::shared().identity();
  options.force = true;
  return options;
}

inline testing::AssertionResult signs(const std::string& path,
                                      const signing::SignOptions& options) {
  signing::SignReport report;
  ErrorText error;
  if (!signing::sign(path, options, &report, &error))
    return testing::AssertionFailure() << error.text();
  const signing::Verdict verdict = signing::verifyCode(path);
  if (!verdict.valid) return testing::AssertionFailure() << "verifier: " << verdict.lines.front();
  return testing::AssertionSuccess();
}

// A program with that Info.plist in a section.
inline std::string imageWith(const std::string& infoPlist) {
  SignableImage image;
  image.infoPlist = infoPlist;
  return image.build();
}

// The opened parts of a signed file; the signature's views live as long as the file.
struct Opened {
  explicit Opened(const std::string& path)
      : object(*signing::CodeObject::resolve(path, nullptr)),
        file(*signing::CodeFile::open(object.executable, nullptr)) {}
  signing::CodeSignature signature(size_t image = 0) const {
    ErrorText error;
    auto found = signing::CodeSignature::embeddedIn(file.images().at(image), &error);
    EXPECT_TRUE(found) << error.text();
    return std::move(*found);
  }
  signing::CodeObject object;
  signing::CodeFile file;
};

}  // namespace tovrek::test
