#include <fmt/format.h>
#include <gtest/gtest.h>

#include "signing/CodeDirectory.h"
#include "signing/Entitlements.h"
#include "signing/SuperBlob.h"
#include "signing/signing_rules.h"

namespace tovrek::signing {
namespace {

std::string directoryBlob(const HashKind& kind = kSha256) {
  CodeDirectoryInfo info;
  info.identifier = "com.example.app";
  info.teamId = "ABCDE12345";
  info.flags = kRuntimeFlag;
  info.codeLimit = 2 * 4096 + 1;
  info.execSegLimit = 8192;
  info.execSegFlags = kExecSegMainBinary;
  return makeCodeDirectory(info, kind,
                           {{2, std::string(kind.size, 'r')}, {5, std::string(kind.size, 'e')}},
                           std::string(3 * size_t{kind.size}, 'p'));
}

TEST(CodeDirectory, FieldsLieWhereTheFormatPutsThem) {
  const std::string blob = directoryBlob();
  const auto directory = CodeDirectory::parse(blob);
  ASSERT_TRUE(directory);
  EXPECT_EQ(readBig32(blob, 0), 0xfade0c02u);
  EXPECT_EQ(readBig32(blob, 4), blob.size());
  EXPECT_EQ(readBig32(blob, 8), 0x20400u);
  EXPECT_EQ(readBig32(blob, 20), 88u);                     // identifier behind the header
  EXPECT_EQ(readBig32(blob, 48), 88u + 16);                // team behind the identifier
  EXPECT_EQ(readBig32(blob, 16), 88u + 16 + 11 + 5 * 32);  // page hashes behind five slots
  EXPECT_EQ(blob.substr(36, 4), std::string("\x20\x02\x00\x0c", 4));
  EXPECT_EQ(directory->info().identifier, "com.example.app");
  EXPECT_EQ(directory->info().teamId, "ABCDE12345");
  EXPECT_EQ(directory->info().codeLimit, 8193u);
  EXPECT_EQ(directory->codeSlotCount(), 3u);
  EXPECT_EQ(directory->specialHash(5), std::string(32, 'e'));
  EXPECT_FALSE(directory->sealsSlot(3));
  EXPECT_TRUE(directory->sealsSlot(2));
  EXPECT_TRUE(directory->specialHash(6).empty());
  EXPECT_EQ(directory->cdHash().size(), 20u);
}

TEST(CodeDirectory, FileBeyondFourGigabytesUsesTheWideLimit) {
  CodeDirectoryInfo info;
  info.identifier = "x";
  info.codeLimit = uint64_t{5} << 30;
  info.pageSizeLog2 = 30;
  const std::string blob = makeCodeDirectory(info, kSha256, {}, std::string(5 * 32, 'p'));
  EXPECT_EQ(readBig32(blob, 32), 0xffffffffu);
  const auto directory = CodeDirectory::parse(blob);
  ASSERT_TRUE(directory);
  EXPECT_EQ(directory->info().codeLimit, uint64_t{5} << 30);
}

TEST(CodeDirectory, RefusesDamage) {
  struct Case {
    const char* what;
    size_t at;
    uint32_t value;
  };
  const Case cases[] = {
      {"magic", 0, 0xfade0c03},
      {"version too old", 8, 0x20000},
      {"version too new", 8, 0x30000},
      {"hash offset past the end", 16, 0x7fffffff},
      {"hash offset before the special hashes", 16, 100},
      {"identifier outside", 20, 0xffffff},
      {"special slots outside", 24, 0xffffffff},
      {"too many pages", 28, 4},
      {"too few pages", 28, 2},
      {"limit of other pages", 32, 4096},
      {"hash type", 36, 0x2009000c},
      {"hash size", 36, 0x1402000c},
      {"page size", 36, 0x202000ff},
      {"team outside", 48, 0xffffff},
  };
  for (const Case& c : cases) {
    std::string blob = directoryBlob();
    std::string value;
    appendBig32(&value, c.value);
    blob.replace(c.at, 4, value);
    ErrorText error;
    EXPECT_FALSE(CodeDirectory::parse(blob, &error)) << c.what;
    EXPECT_TRUE(error.isSet()) << c.what;
  }
  const std::string blob = directoryBlob();
  for (size_t size = 0; size < blob.size(); ++size) {
    EXPECT_FALSE(CodeDirectory::parse(std::string_view(blob).substr(0, size))) << size;
  }
}

TEST(SuperBlob, IsSortedAndPacked) {
  const std::string bytes = makeSuperBlob(
      kEmbeddedSignatureMagic, {{kCmsSlot, makeBlob(kWrapperMagic, "cms")},
                                {kCodeDirectorySlot, directoryBlob()},
                                {kRequirementsSlot, makeBlob(kRequirementSetMagic, "set")}});
  const auto index = SuperBlob::parse(bytes + std::string(100, '\0'), kEmbeddedSignatureMagic);
  ASSERT_TRUE(index);
  EXPECT_EQ(index->length(), bytes.size());
  ASSERT_EQ(index->entries().size(), 3u);
  EXPECT_EQ(index->entries()[1].type, uint32_t{kRequirementsSlot});
  EXPECT_EQ(readBig32(bytes, 16), 12u + 3 * 8);
  EXPECT_EQ(bytes.substr(bytes.size() - 3), "cms");
  EXPECT_FALSE(index->find(kEntitlementsSlot));
  for (size_t size = 0; size < bytes.size(); ++size) {
    EXPECT_FALSE(SuperBlob::parse(bytes.substr(0, size), kEmbeddedSignatureMagic)) << size;
  }
}

TEST(SuperBlob, RefusesDirectoriesOfTheSameHash) {
  const std::string bytes = makeSuperBlob(
      kEmbeddedSignatureMagic,
      {{kCodeDirectorySlot, directoryBlob()}, {kAlternateCodeDirectorySlot, directoryBlob()}});
  const auto index = SuperBlob::parse(bytes, kEmbeddedSignatureMagic);
  ASSERT_TRUE(index);
  ErrorText error;
  EXPECT_FALSE(codeDirectoriesOf(*index, &error));
  EXPECT_EQ(error.text(), "two code directories have the same hash type");
}

TEST(SuperBlob, TheStrongestHashIsTheBest) {
  const std::string sha1 = directoryBlob(kSha1);
  const std::string sha256 = directoryBlob(kSha256);
  const std::vector<CodeDirectory> directories{*CodeDirectory::parse(sha1),
                                               *CodeDirectory::parse(sha256)};
  EXPECT_EQ(bestOf(directories).kind().type, kSha256.type);
}

// --- Entitlements ---

std::string derOf(const PlistDictionary& entitlements) {
  const auto der = derEntitlements(entitlements);
  return der ? hexLower(*der) : "none";
}

PlistDictionary oneEntry(const char* key, PlistValue value) {
  PlistDictionary dictionary;
  dictionary.set(key, std::move(value));
  return dictionary;
}

TEST(Entitlements, DerForms) {
  struct Case {
    PlistValue value;
    const char* der;  // of the value
  };
  const Case cases[] = {
      {true, "0101ff"},
      {false, "010100"},
      {0, "020100"},
      {127, "02017f"},
      {128, "02020080"},
      {-1, "0201ff"},
      {-129, "0202ff7f"},
      {uint64_t{0xffffffffffffffff}, "020900ffffffffffffffff"},
      {"ab", "0c026162"},
      {PlistValue::Array{"a", true}, "30060c01610101ff"},
      {oneEntry("k", "v"), "b00830060c016b0c0176"},
  };
  for (const Case& c : cases) {
    const std::string value = c.der;
    const auto size = [](size_t digits) { return fmt::format("{:02x}", digits / 2); };
    const std::string pair = "0c0178" + value;
    const std::string dictionary = "30" + size(pair.size()) + pair;
    const std::string body = "020101b0" + size(dictionary.size()) + dictionary;
    EXPECT_EQ(derOf(oneEntry("x", c.value)), "70" + size(body.size()) + body) << value;
  }
}

TEST(Entitlements, DerKeysAreSortedAndLongLengthsMinimal) {
  PlistDictionary entitlements;
  entitlements.set("b", true);
  entitlements.set("a", std::string(200, 'x'));
  const std::string der = derOf(entitlements);
  EXPECT_EQ(der.substr(0, 6), "7081df");
  EXPECT_LT(der.find("0c0161"
                     "0c81c8"),
            der.find("0c0162"));
}

TEST(Entitlements, PublishedExample) {
  PlistDictionary entitlements;
  entitlements.set("get-task-allow", false);
  EXPECT_EQ(derOf(entitlements), "701a020101b01530130c0e6765742d7461736b2d616c6c6f77010100");
}

TEST(Entitlements, RefusesWhatHasNoForm) {
  EXPECT_EQ(derOf(oneEntry("x", 1.5)), "none");
  EXPECT_EQ(derOf(oneEntry("x", PlistValue::Data{"d"})), "none");
  EXPECT_EQ(derOf(oneEntry("x", PlistValue::Array{PlistValue::Date{0}})), "none");
  ErrorText error;
  EXPECT_FALSE(Entitlements::fromPlist("no property list", &error));
  EXPECT_EQ(error.text(), "invalid entitlements (not a property list with a dictionary)");
}

TEST(Entitlements, TextStaysAsItIsUnlessDevicesCannotReadIt) {
  const std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>\n"
      "    <key>get-task-allow</key><true/>\n</dict></plist>\n";
  const auto plain = Entitlements::fromPlist(xml);
  ASSERT_TRUE(plain);
  EXPECT_EQ(payloadOf(plain->xmlBlob), xml);
  EXPECT_EQ(plain->execSegFlags, uint64_t{kExecSegAllowUnsigned});
  EXPECT_EQ(Entitlements::fromPlist(plain->xmlBlob)->xmlBlob, plain->xmlBlob);

  std::string commented = xml;
  commented.insert(commented.find("<key>"), "<!-- why -->");
  const auto rewritten = Entitlements::fromPlist(commented);
  ASSERT_TRUE(rewritten);
  EXPECT_EQ(rewritten->xmlBlob.find("<!--"), std::string::npos);
  EXPECT_EQ(rewritten->derBlob, plain->derBlob);

  const std::string binary = serializePlist(oneEntry("get-task-allow", true), PlistFormat::kBinary);
  const auto converted = Entitlements::fromPlist(binary);
  ASSERT_TRUE(converted);
  EXPECT_TRUE(payloadOf(converted->xmlBlob).starts_with("<?xml"));
  EXPECT_EQ(converted->derBlob, plain->derBlob);
}

// --- Small rules ---

TEST(SigningRules, CanonicalIdentifiers) {
  const std::pair<const char*, const char*> cases[] = {
      {"/a/libfoo7.3.5.dylib", "libfoo7"},
      {"libexpat.1.dylib", "libexpat.1"},
      {"libz.1.2.8.dylib", "libz.1"},
      {"Tool", "Tool"},
      {"Tool.app", "Tool"},
      {"Tool.2", "Tool.2"},
      {"a.b.dylib", "a.b"},
      {"1.2.3", "1.2.3"},
      {"x.", "x"},
      {"OrvaneDylib.dylib", "OrvaneDylib"},
  };
  for (const auto& [path, identifier] : cases) {
    EXPECT_EQ(canonicalIdentifier(path), identifier) << path;
  }
}

TEST(SigningRules, FlagTexts) {
  EXPECT_EQ(flagsText(0), "0x0(none)");
  EXPECT_EQ(flagsText(0x10002), "0x10002(adhoc,runtime)");
  EXPECT_EQ(flagsText(0x2008), "0x2008(library-validation,?\?\?)");
  EXPECT_EQ(flagByName("runtime"), 0x10000u);
  EXPECT_EQ(flagByName("library"), 0x2000u);
  EXPECT_EQ(flagByName("nonsense"), 0u);
}

}  // namespace
}  // namespace tovrek::signing
