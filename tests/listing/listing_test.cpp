// What otool and nm have in common: the command line, the files it means, and the output.
#include <gtest/gtest.h>

#include "listing/ListingOptions.h"
#include "listing/Output.h"
#include "listing/meant_file.h"
#include "macho/ArchName.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek::listing {
namespace {

using Words = std::vector<std::string>;

struct Options : ListingOptions {
  std::string letters;
  bool parse(const Words& words, ErrorText* error) {
    const auto take = [this](char letter, ErrorText* reason) {
      if (letter == 'z') return fail(reason, "no z");
      letters += letter;
      return true;
    };
    return parseWords(words, {}, take, error);
  }
};

TEST(ListingOptions, WordsOfACommandLine) {
  const std::string unknown = std::string(macho::kUnknownArchFlag) + ": -arch ";
  const struct {
    Words words;
    std::string letters;
    Words archs, files;
    std::string error;
  } cases[] = {
      {{"-gU", "a", "-j", "b"}, "gUj", {}, {"a", "b"}, ""},
      {{"-arch", "arm64", "--arch=armv7", "-arch", "all", "f"},
       "",
       {"arm64", "armv7", "all"},
       {"f"},
       ""},
      {{"--", "-g", "--"}, "", {}, {"-g", "--"}, ""},
      {{"-", "a"}, "", {}, {"-", "a"}, ""},
      {{"-gz"}, "g", {}, {}, "no z"},
      {{"f", "-arch"}, "", {}, {"f"}, "missing argument to -arch option"},
      {{"-arch", "vax"}, "", {}, {}, unknown + "vax"},
      {{"--arch="}, "", {}, {}, unknown},
  };
  for (const auto& each : cases) {
    SCOPED_TRACE(testing::PrintToString(each.words));
    Options options;
    ErrorText error;
    EXPECT_EQ(options.parse(each.words, &error), each.error.empty());
    EXPECT_EQ(error.text(), each.error);
    EXPECT_EQ(options.letters, each.letters);
    EXPECT_EQ(options.archs, each.archs);
    EXPECT_EQ(options.files, each.files);
  }
}

TEST(MeantFile, BackslashesThatAShellLeftIn) {
  const test::TemporaryFolder folder;
  const std::string plain = folder.write("Bob's 'App'", "");
  const std::string literal = folder.write("Eve\\'s", "");
  EXPECT_EQ(meantFile(folder.file("Bob\\'s \\'App\\'")), plain);
  EXPECT_EQ(meantFile(plain), plain);
  EXPECT_EQ(meantFile(literal), literal) << "a file of that very name comes first";
  EXPECT_EQ(meantFile(folder.file("No\\'one")), folder.file("No\\'one"));
}

TEST(Output, ComesInOrderAndLargePieces) {
  std::vector<std::string> pieces;
  std::string all;
  {
    Output output([&](std::string_view text) { pieces.emplace_back(text); });
    for (int i = 0; i < 20000; ++i) {
      output.print("{:05}\n", i);
      output.text("text\n");
      all += fmt::format("{:05}\ntext\n", i);
    }
    EXPECT_EQ(output.size(), all.size());
  }
  EXPECT_LT(pieces.size(), 5u);
  std::string joined;
  for (const std::string& piece : pieces) joined += piece;
  EXPECT_EQ(joined, all);
}

}  // namespace
}  // namespace tovrek::listing
