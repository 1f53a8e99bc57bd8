// openssl as Apple's answers.

#include "host/files.h"
#include "programs/openssl/openssl_arguments.h"
#include "programs/openssl/subject_answer.h"
#include "tests/support/CompanionTest.h"
#include "tests/support/matchers.h"
#include "tests/support/openssl_identity.h"

namespace tovrek::test {
namespace {

using Words = std::vector<std::string>;

using Openssl = CompanionTest;

TEST_F(Openssl, PrintsSubjectsWithSlashes) {
  IdentityRequest request;
  request.subject = "/UID=U1/CN=iPhone Distribution: Acme/OU=TEAM123456/O=Acme, Inc.";
  const std::string file =
      folder_.write("c.der", derOf(makeIdentity(folder_, "id", request).certificate));
  expectRun({"openssl", "x509", "-inform", "der", "-in", file, "-subject", "-noout"}, 0,
            "subject=/UID=U1/CN=iPhone Distribution: Acme/OU=TEAM123456/O=Acme, Inc.\n");
  EXPECT_THAT(run({"openssl", "version"}).output, StartsWith("OpenSSL "));
  const Outcome failed = run({"openssl", "x509", "-in", "/nowhere", "-subject"});
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(run({"openssl", "dgst", "-md5", "-r"}, "abc").output,
            "900150983cd24fb0d6963f7d28e17f72 *stdin\n");
}

// Each answer is the host program's own, and what that refuses is left to it.
TEST_F(Openssl, AnswersForSubjectsItself) {
  IdentityRequest request;
  request.subject = "/CN=Zo\xc3\xab \\/ A+B=C/OU=TEAM123456/OU=Second/emailAddress=a@example.com";
  const std::string pem = makeIdentity(folder_, "id", request).certificate;
  const std::string der = derOf(pem);
  std::string text;
  ASSERT_TRUE(readFile(pem, &text));
  const struct {
    std::string content;
    Words form;
    bool answered;
  } cases[] = {
      {der, {"-inform", "der"}, true},
      {der, {}, true},
      {text, {"-inform", "PEM"}, true},
      {text, {}, true},
      {text, {"-inform", "der"}, false},
      {der, {"-inform", "pem"}, false},
      {der + "x", {}, false},
      {der.substr(0, der.size() - 1), {}, false},
      {"", {}, false},
      {der, {"-serial"}, false},
      {der, {"-nameopt", "RFC2253"}, false},
      {der, {"-in"}, false},
  };
  for (const auto& c : cases) {
    const std::string file = folder_.write("subject", c.content);
    Words words = {"x509", "-in", file, "-subject", "-noout"};
    words.insert(words.end(), c.form.begin(), c.form.end());
    const auto answer = tovrek::openssl::subjectAnswer(words);
    ASSERT_EQ(answer.has_value(), c.answered) << testing::PrintToString(c.form);
    if (!answer) continue;
    words.insert(words.begin(), "openssl");
    words.insert(words.end(), {"-nameopt", "compat"});  // so that the host's program answers
    EXPECT_EQ(*answer, run(words).output);
  }
}

TEST(OpensslArguments, ChangeNothingElse) {
  const struct {
    Words given, expected;
  } cases[] = {
      {{"x509", "-subject"}, {"x509", "-nameopt", "compat", "-subject"}},
      {{"x509", "-subject", "-nameopt", "RFC2253"}, {"x509", "-subject", "-nameopt", "RFC2253"}},
      {{"x509", "-noout"}, {"x509", "-noout"}},
      {{"req", "-subject"}, {"req", "-subject"}},
      {{}, {}},
  };
  for (const auto& c : cases) EXPECT_EQ(tovrek::openssl::opensslArguments(c.given), c.expected);
}

}  // namespace
}  // namespace tovrek::test
