#include "signing/requirements.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "formats/Digest.h"
#include "signing/RequirementExpression.h"
#include "signing/RequirementParser.h"
#include "signing/verify/requirement_check.h"
#include "tests/signing/TestAuthority.h"

namespace tovrek::signing {
namespace {

using test::ScopedEnvironment;
using test::TestAuthority;

std::string word(uint32_t value) {
  std::string bytes;
  appendBig32(&bytes, value);
  return bytes;
}

std::string text(const std::string& bytes) {
  return word(static_cast<uint32_t>(bytes.size())) + bytes +
         std::string((4 - bytes.size() % 4) % 4, '\0');
}

std::string requirement(const std::string& words) {
  return word(0xfade0c00) + word(static_cast<uint32_t>(12 + words.size())) + word(1) + words;
}

TEST(Requirements, AppleFormByteForByte) {
  const ScopedEnvironment trust("TOVREK_TRUSTED_ROOT_SHA1", TestAuthority::shared().rootSha1());
  const std::string cn = "iPhone Distribution: Example (ABCDE12345)";
  const std::string body =
      word(6) + word(2) + text("com.example.app") + word(6) + word(15) + word(6) + word(11) +
      word(0) + text("subject.CN") + word(1) + text(cn) + word(14) + word(1) +
      text(std::string("\x2a\x86\x48\x86\xf7\x63\x64\x06\x02\x01", 10)) + word(0);
  const std::string expected =
      word(0xfade0c01) + word(0xb0) + word(1) + word(3) + word(0x14) + requirement(body);
  const std::string set =
      defaultRequirementSet("com.example.app", TestAuthority::shared().identity().chain);
  EXPECT_EQ(hexLower(set), hexLower(expected));
  EXPECT_EQ(requirementSetText(set),
            "designated => identifier \"com.example.app\" and anchor apple generic and "
            "certificate leaf[subject.CN] = \"" +
                cn + "\" and certificate 1[field.1.2.840.113635.100.6.2.1] /* exists */\n");
}

TEST(Requirements, OtherChainsAreKnownByACertificate) {
  const CertificateChain full = TestAuthority::shared().identity().chain;
  const auto shaOf = [](const CertificateChain& chain, int slot) {
    return hexLower(chain.at(slot)->sha1());
  };
  const CertificateChain alone({full.certificates()[2]});  // self-signed, with organisation
  const CertificateChain nameless = TestAuthority::shared().selfSignedWithoutOrganization();
  const CertificateChain authorities({full.certificates()[1], full.certificates()[2]});
  struct Case {
    const char* what;
    const CertificateChain& chain;
    std::string expected;
  };
  const Case cases[] = {
      {"leaf of another organisation than its issuer", full, "leaf = H\"" + shaOf(full, 0)},
      {"self-signed with organisation", alone, "root = H\"" + shaOf(alone, 0)},
      {"self-signed without", nameless, "leaf = H\"" + shaOf(nameless, 0)},
      {"one organisation up to the root", authorities, "root = H\"" + shaOf(authorities, 1)},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(requirementSetText(defaultRequirementSet("tool", c.chain)),
              "designated => identifier tool and certificate " + c.expected + "\"\n")
        << c.what;
  }
  EXPECT_EQ(hexLower(defaultRequirementSet("tool", {})), "fade0c010000000c00000000");
}

TEST(Requirements, Texts) {
  const std::string a = word(2) + text("a");
  const std::string b = word(2) + text("b");
  const std::pair<std::string, const char*> cases[] = {
      {word(0), "never"},
      {word(1), "always"},
      {word(3), "anchor apple"},
      {word(2) + text("or"), "identifier \"or\""},
      {word(2) + text("7a"), "identifier \"7a\""},
      {word(2) + text("q\"\\"), "identifier \"q\\\"\\\\\""},
      {word(2) + text("\x01"), "identifier 0x01"},
      {word(6) + word(7) + a + b + a, "(identifier a or identifier b) and identifier a"},
      {word(7) + word(6) + a + b + a, "identifier a and identifier b or identifier a"},
      {word(9) + word(6) + a + b, "! (identifier a and identifier b)"},
      {word(8) + text("\xab\xcd"), "cdhash H\"abcd\""},
      {word(4) + word(0xffffffff) + text("\x01"), "certificate root = H\"01\""},
      {word(5) + text("k") + text("v"), "info[k] = v"},
      {word(10) + text("k.l") + word(8) + text("1.2"), "info[k.l] >= \"1.2\""},
      {word(16) + text("k") + word(3) + text("v"), "entitlement[k] = v*"},
      {word(20) + word(2), "platform = 2"},
      {word(0x80000077) + text("unknown"), "never"},
      {word(0x40000077) + text("unknown") + a, "identifier a"},
  };
  for (const auto& [words, expected] : cases) {
    EXPECT_EQ(requirementText(requirement(words)), expected);
  }
}

// From text to the compiled form and back. Null: the text comes back as it was.
TEST(Requirements, TextIsCompiled) {
  const std::string hash(40, 'a');
  struct Case {
    std::string source;
    const char* text;
  };
  const Case cases[] = {
      {"always", nullptr},
      {"true", "always"},
      {"FALSE or never", ""},
      {"identifier com.example.app", "identifier \"com.example.app\""},
      {"identifier = \"a b\\\"c\\\\\"", "identifier \"a b\\\"c\\\\\""},
      {"identifier 0x0102", "identifier 0x0102"},
      {"identifier \"and\"", nullptr},
      {"identifier a or identifier b and identifier c", nullptr},
      {"(identifier a or identifier b) and identifier c", nullptr},
      {"((identifier a) and (identifier b))", "identifier a and identifier b"},
      {"not identifier a", "! identifier a"},
      {"!(identifier a or !identifier b)", "! (identifier a or ! identifier b)"},
      {"anchor apple", nullptr},
      {"anchor apple generic", nullptr},
      {"anchor generic apple", "anchor apple generic"},
      {"anchor apple Named", nullptr},
      {"anchor trusted", nullptr},
      {"certificate trusted", "anchor trusted"},
      {"(Named)", nullptr},
      {"anchor = H\"" + hash + "\"",
       "certificate root = H\"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\""},
      {"cert -2 = H\"" + hash + "\"",
       "certificate -2 = H\"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\""},
      {"certificate 1 trusted", "certificate 1trusted"},
      {"certificate leaftrusted", nullptr},
      {"certificate leaf[subject.CN] = \"iPhone Developer: X\"", nullptr},
      {"anchor[subject.O] exists", "certificate root[subject.O] /* exists */"},
      {"certificate 1[field.1.2.840.113635.100.6.2.1]",
       "certificate 1[field.1.2.840.113635.100.6.2.1] /* exists */"},
      {"certificate leaf[policy.1.2.3] absent", "certificate leaf[policy.1.2.3] absent "},
      {"certificate leaf[timestamp.1.2.840.113635.100.6.1.33] >= timestamp \"2011-07-01 00:00:00 "
       "+0000\"",
       nullptr},
      {"info[CFBundleVersion] >= 17.4", "info[CFBundleVersion] >= \"17.4\""},
      {"info [a.b] = v*", "info[a.b] = v*"},
      {"info[k] = *v", "info[k] = *v"},
      {"info[k] == *v*", "info[k] ~ v"},
      {"entitlement[\"exists\"] < v", nullptr},
      {"cdhash H\"" + hash + "\"", nullptr},
      {"platform = 2", nullptr},
      {"notarized or legacy", nullptr},
      {"# a\n// b\n/* c */ identifier /**/ a;", "identifier a"},
  };
  for (const Case& c : cases) {
    ErrorText error;
    const auto expression = parseRequirement(c.source, &error);
    if (c.text != nullptr && *c.text == '\0') {
      EXPECT_FALSE(expression) << c.source;
      continue;
    }
    ASSERT_TRUE(expression) << c.source << ": " << error.text();
    const std::string blob = expression->blob();
    const std::string text = requirementText(blob);
    EXPECT_EQ(text, c.text == nullptr ? c.source : c.text);
    const auto again = parseRequirement(text, &error);
    ASSERT_TRUE(again) << text << ": " << error.text();
    EXPECT_EQ(hexLower(again->blob()), hexLower(blob)) << text;
  }
}

TEST(Requirements, BadTextIsRefusedWithItsPlace) {
  std::string deep, chain = "always";
  for (int i = 0; i < 100000; ++i) deep += i % 2 == 0 ? '(' : '!';
  for (int i = 0; i < 100000; ++i) chain += " and always";
  const std::pair<std::string, const char*> cases[] = {
      {"", "line 1, column 1: expected a condition, found the end"},
      {"identifier or", "line 1, column 12: expected a string, found or"},
      {"identifier a\n  identifier b",
       "line 2, column 3: expected the end, \"and\" or \"or\", found identifier"},
      {"(identifier a", "line 1, column 14: expected \")\", found the end"},
      {"identifier \"a", "line 1, column 12: the quotes have no end"},
      {"always /* ", "line 1, column 7: the comment has no end"},
      {"cdhash H\"abc\"", "line 1, column 8: a hash has hexadecimal digits"},
      {"cdhash H\"ab\"", "line 1, column 8: a code directory's hash has 40 digits"},
      {"anchor = H\"ab\"", "line 1, column 10: a certificate's hash has 40 digits"},
      {"anchor = /no/such/file", "line 1, column 10: /no/such/file: No such file or directory"},
      {"certificate middle = H\"ab\"",
       "line 1, column 13: expected leaf, root or a number, found middle"},
      {"certificate leaf[field.1.x]", "line 1, column 18: \"1.x\" is no object identifier"},
      {"info[k", "line 1, column 7: expected \"]\", found the end"},
      {"info[k] > timestamp \"today\"",
       "line 1, column 21: expected a date as in \"2011-07-01 00:00:00 +0000\", found \"today\""},
      {"identifier a $", "line 1, column 14: '$' means nothing here"},
      {deep, "line 1, column 501: this is nested too deeply"},
  };
  for (const auto& [source, expected] : cases) {
    ErrorText error;
    EXPECT_FALSE(parseRequirement(source, &error)) << source.substr(0, 40);
    EXPECT_EQ(error.text(), std::string("invalid requirement: ") + expected);
  }
  EXPECT_FALSE(parseRequirement(chain, nullptr));
}

TEST(Requirements, SetsOfText) {
  ErrorText error;
  const auto set = parseRequirementSet("library => always; designated => never", &error);
  ASSERT_TRUE(set) << error.text();
  const std::string blob = makeSuperBlob(kRequirementSetMagic, *set);
  EXPECT_EQ(requirementSetText(blob), "designated => never\nlibrary => always\n");
  for (const char* bad : {"", "always", "designated =>", "designated = always", "other => always",
                          "host => always host => never", "host => always,"}) {
    EXPECT_FALSE(parseRequirementSet(bad, &error)) << bad;
    EXPECT_THAT(error.text(), testing::StartsWith("invalid requirement: line 1, column "));
  }

  // The default joins a set that states no designated requirement, and no other.
  const CertificateChain chain = TestAuthority::shared().selfSignedWithoutOrganization();
  const std::string host =
      makeSuperBlob(kRequirementSetMagic, *parseRequirementSet("host => always", &error));
  EXPECT_THAT(requirementSetText(withDesignatedRequirement(host, "a", chain)),
              testing::MatchesRegex("host => always\ndesignated => identifier a and .*\n"));
  EXPECT_EQ(withDesignatedRequirement(host, "a", {}), host);
  EXPECT_EQ(withDesignatedRequirement(blob, "a", chain), blob);
}

TEST(Requirements, RefusesDamage) {
  const std::string whole = requirement(word(6) + word(2) + text("a") + word(2) + text("b"));
  ASSERT_TRUE(RequirementExpression::parse(whole));
  for (size_t size = 0; size < whole.size(); ++size) {
    EXPECT_FALSE(RequirementExpression::parse(whole.substr(0, size))) << size;
  }
  std::string deep;
  for (int i = 0; i < 100000; ++i) deep += word(9);
  const std::pair<const char*, std::string> cases[] = {
      {"unknown operator", requirement(word(0x77))},
      {"nested without end", requirement(deep + word(1))},
      {"length beyond the end", requirement(word(2) + word(0xfffffffe) + "abcd")},
      {"something behind it", requirement(word(1) + word(1))},
      {"unknown match", requirement(word(10) + text("k") + word(15))},
  };
  for (const auto& [what, blob] : cases) {
    EXPECT_FALSE(RequirementExpression::parse(blob)) << what;
  }
}

TEST(Requirements, Satisfaction) {
  RequirementContext context;
  context.identifier = "a";
  context.info.set("CFBundleVersion", "1.10");
  context.entitlements.set("groups", PlistValue::Array{"one", "two"});
  context.entitlements.set("off", false);
  context.cdHashes = {"H"};
  context.platform = 2;
  context.chain = TestAuthority::shared().identity().chain;
  const std::string leafSha1 = context.chain.leaf().sha1();
  struct Case {
    const char* what;
    std::string words;
    bool expected;
  };
  const Case cases[] = {
      {"identifier", word(2) + text("a"), true},
      {"other identifier", word(2) + text("A"), false},
      {"and", word(6) + word(1) + word(0), false},
      {"or", word(7) + word(0) + word(1), true},
      {"not", word(9) + word(0), true},
      {"cdhash", word(8) + text("H"), true},
      {"newer version by number", word(10) + text("CFBundleVersion") + word(8) + text("1.9"), true},
      {"older version by number", word(10) + text("CFBundleVersion") + word(5) + text("1.9"),
       false},
      {"any element", word(16) + text("groups") + word(1) + text("two"), true},
      {"false is not there", word(16) + text("off") + word(0), false},
      {"absent", word(16) + text("none") + word(14), true},
      {"leaf hash", word(4) + word(0) + text(leafSha1), true},
      {"root hash", word(4) + word(0xffffffff) + text(leafSha1), false},
      {"certificate beyond the chain", word(4) + word(7) + text(leafSha1), false},
      {"organisation", word(11) + word(0) + text("subject.O") + word(1) + text("Example"), true},
      {"extension", word(14) + word(1) + text(oidContents("1.2.840.113635.100.6.2.1")) + word(0),
       true},
      {"extension of another",
       word(14) + word(0) + text(oidContents("1.2.840.113635.100.6.2.1")) + word(0), false},
      {"platform", word(20) + word(2), true},
      {"not Apple's", word(15), false},
      {"notarized is never known", word(21), false},
  };
  for (const Case& c : cases) {
    const auto expression = RequirementExpression::parse(requirement(c.words));
    ASSERT_TRUE(expression) << c.what;
    EXPECT_EQ(satisfies(context, *expression), c.expected) << c.what;
  }
}

TEST(Chain, TeamNeedsAppleAndTheMark) {
  const CertificateChain marked = TestAuthority::shared().identity().chain;
  const CertificateChain unmarked = TestAuthority::shared().identityWithoutMark().chain;
  EXPECT_EQ(marked.teamId(), "");
  EXPECT_FALSE(marked.isApples());
  const ScopedEnvironment trust("TOVREK_TRUSTED_ROOT_SHA1", TestAuthority::shared().rootSha1());
  EXPECT_EQ(marked.teamId(), "ABCDE12345");
  EXPECT_TRUE(marked.isAppleDevelopment());
  EXPECT_EQ(unmarked.teamId(), "");
  EXPECT_TRUE(unmarked.isAppleDevelopment());
}

TEST(Chain, IsOrderedByWhoIssuedWhom) {
  const auto& all = TestAuthority::shared().identity().chain.certificates();
  const auto chain = CertificateChain::build(
      all[0], {all[2], TestAuthority::shared().selfSignedWithoutOrganization().leaf(), all[1]});
  ASSERT_EQ(chain.size(), 3u);
  EXPECT_EQ(chain.at(1)->der(), all[1].der());
  EXPECT_EQ(chain.at(-1)->der(), all[2].der());
  EXPECT_EQ(CertificateChain::build(all[0], {all[2]}).size(), 1u);
}

}  // namespace
}  // namespace tovrek::signing
