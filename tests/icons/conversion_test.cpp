// Sound icons: pixels, chunks and files after the conversion.
#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "host/files.h"
#include "icons/IconConverter.h"
#include "tests/icons/decoded.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/matchers.h"

namespace tovrek {
namespace {

using test::contentsOf;
using test::decodedPng;
using test::noisePicture;
using test::Picture;
using test::pngChunk;
using test::pngFile;
using test::PngForm;

class Conversion : public testing::Test {
 protected:
  // Converts `file` and answers the path of the result.
  std::string convert(const std::string& file) {
    const std::string source = folder_.write("in/icon.png", file);
    createDirectories(folder_.file("out"));
    converter_.settings().outputDirectory = folder_.file("out");
    converter_.settings().rewrite = true;
    testing::internal::CaptureStdout();
    result_ = converter_.process(source);
    output_ = testing::internal::GetCapturedStdout();
    return folder_.file("out/icon.png");
  }

  test::TemporaryFolder folder_;
  IconConverter converter_;
  int result_ = -1;
  std::string output_;
};

// What premultiplying and undoing it may lose of a colour.
int tolerance(int alpha) {
  return alpha == 255 ? 0 : 255 / (2 * alpha) + 1;
}

void expectSamePicture(const Picture& expected, const Picture& actual) {
  ASSERT_EQ(expected.width, actual.width);
  ASSERT_EQ(expected.height, actual.height);
  for (uint32_t y = 0; y < expected.height; y++) {
    for (uint32_t x = 0; x < expected.width; x++) {
      const uint8_t* want = expected.at(x, y);
      const uint8_t* have = actual.at(x, y);
      const int alpha = expected.channels == 4 ? want[3] : 255;
      if (expected.channels == 4) {
        ASSERT_EQ(want[3], have[3]) << x << "," << y;
      }
      for (int c = 0; c < 3; c++) {
        if (alpha == 0) {
          ASSERT_EQ(have[c], 0) << x << "," << y;
        } else {
          ASSERT_LE(std::abs(want[c] - have[c]), tolerance(alpha)) << x << "," << y << " " << alpha;
        }
      }
    }
  }
}

// Every number of channels, order and filter in many sizes and pieces, the smallest sizes often.
TEST_F(Conversion, KeepsThePixels) {
  std::mt19937 random(20);
  const auto upTo = [&random](uint32_t most) { return 1 + static_cast<uint32_t>(random()) % most; };
  for (uint32_t round = 0; round < 240; round++) {
    PngForm form;
    form.interlaced = random() % 2 == 0;
    form.filter = static_cast<int>(upTo(6)) - 2;
    form.imageChunks = upTo(5);
    const int channels = random() % 3 == 0 ? 3 : 4;
    const Picture picture =
        noisePicture(upTo(round % 2 == 0 ? 9 : 90), upTo(round % 3 == 0 ? 9 : 60), channels, round);
    SCOPED_TRACE(testing::Message()
                 << picture.width << "x" << picture.height << "x" << channels << " filter "
                 << form.filter << (form.interlaced ? " interlaced" : ""));
    const std::string path = convert(pngFile(picture, form));
    const std::optional<Picture> converted = decodedPng(path, channels);
    ASSERT_TRUE(converted) << output_;
    EXPECT_EQ(output_, "writing to file " + path + "\n");
    ASSERT_NO_FATAL_FAILURE(expectSamePicture(picture, *converted));
  }
}

TEST_F(Conversion, WritesAStandardFile) {
  PngForm form;
  form.imageChunks = 4;
  // A checksum that is wrong stays as it came.
  std::string text = pngChunk("tEXt", std::string("Title\0icon", 10));
  text.back() = static_cast<char>(text.back() ^ 1);
  form.extraChunks = text;
  const std::string file = contentsOf(convert(pngFile(noisePicture(1, 1, 4), form)));
  EXPECT_EQ(file.find("CgBI"), std::string::npos);
  EXPECT_EQ(file.substr(0, 33), test::pngSignature() + test::pngHeaderChunk(1, 1));
  EXPECT_EQ(file.substr(33, text.size()), text);
  EXPECT_EQ(file.find("IDAT"), file.rfind("IDAT"));
  EXPECT_EQ(file.substr(file.find("IDAT") + 4, 2), "\x78\x01");
  EXPECT_TRUE(file.ends_with(pngChunk("IEND", "")));
}

TEST_F(Conversion, SplitsLargeImageData) {
  const Picture picture = noisePicture(700, 600, 3);
  const std::string path = convert(pngFile(picture));
  const std::string file = contentsOf(path);
  const std::string full = test::bigEndian32(524288) + "IDAT";
  EXPECT_EQ(file.find("IDAT"), file.find(full) + 4);
  EXPECT_NE(file.rfind("IDAT"), file.rfind(full) + 4);
  const std::optional<Picture> converted = decodedPng(path, 3);
  ASSERT_TRUE(converted);
  EXPECT_EQ(converted->bytes, picture.bytes);
}

// A colour above its alpha wraps around: 510 becomes 254.
TEST_F(Conversion, DividesEveryColourByEveryAlpha) {
  Picture stored{256, 256, 4, {}};
  Picture expected = stored;
  for (int alpha = 0; alpha < 256; alpha++) {
    for (int colour = 0; colour < 256; colour++) {
      const auto quotient =
          static_cast<uint8_t>(alpha == 0 ? colour : (colour * 255 + alpha / 2) / alpha);
      for (Picture* picture : {&stored, &expected}) {
        picture->bytes.insert(picture->bytes.end(), 3,
                              picture == &stored ? static_cast<uint8_t>(colour) : quotient);
        picture->bytes.push_back(static_cast<uint8_t>(alpha));
      }
    }
  }
  PngForm form;
  form.premultiply = false;
  EXPECT_EQ(decodedPng(convert(pngFile(stored, form)))->bytes, expected.bytes);
  converter_.settings().updateAlpha = false;
  EXPECT_EQ(decodedPng(convert(pngFile(stored, form)))->bytes, stored.bytes);
}

TEST_F(Conversion, LeavesOtherPixelFormatsAsTheyAre) {
  const std::string data = pngChunk("IDAT", test::deflated(std::string("\0\x7f", 2)));
  const std::string header = test::pngHeaderChunk(1, 1, 8, 0);
  const std::string end = pngChunk("IEND", "");
  const std::string path = convert(test::pngSignature() + test::cgbiChunk() + header + data + end);
  EXPECT_EQ(contentsOf(path), test::pngSignature() + header + data + end);
}

TEST_F(Conversion, TakesStandardFilesOnlyWhenAsked) {
  const Picture picture = noisePicture(9, 5, 4);
  PngForm form;
  form.optimised = false;
  const std::string path = convert(pngFile(picture, form));
  EXPECT_EQ(result_, IconConverter::kNotOptimised);
  EXPECT_EQ(output_, folder_.file("in/icon.png") + " : not an -iphone crushed PNG file\n");
  EXPECT_FALSE(fileExists(path));

  converter_.settings().processAnyway = true;
  convert(pngFile(picture, form));
  EXPECT_EQ(result_, IconConverter::kConverted);
  EXPECT_EQ(decodedPng(path)->bytes, picture.bytes);
}

TEST_F(Conversion, NamesTheResultAsTheSettingsSay) {
  converter_.settings().suffix = "-new";
  convert(pngFile(noisePicture(2, 2, 3)));
  EXPECT_TRUE(decodedPng(folder_.file("out/icon-new.png")));

  const std::string odd = folder_.write("in/odd.PNG", pngFile(noisePicture(2, 2, 3)));
  converter_.settings().outputDirectory.clear();
  converter_.settings().rewrite = false;
  EXPECT_EQ(converter_.process(odd), IconConverter::kConverted);
  EXPECT_EQ(listDirectory(folder_.file("in"))->size(), 2U);
  converter_.settings().rewrite = true;
  EXPECT_EQ(converter_.process(odd), IconConverter::kConverted);
  EXPECT_TRUE(decodedPng(folder_.file("in/odd-new.png")));
  converter_.settings().suffix.clear();
  EXPECT_EQ(converter_.process(odd), IconConverter::kConverted);
  EXPECT_TRUE(decodedPng(odd));
}

TEST_F(Conversion, ListsChunksAndHeader) {
  PngForm form;
  form.interlaced = true;
  form.extraChunks = pngChunk("tEXt", "a");
  form.extraChunks.back() = static_cast<char>(form.extraChunks.back() ^ 1);
  converter_.settings().listChunks = true;
  converter_.settings().verbose = true;
  convert(pngFile(noisePicture(9, 5, 4), form));
  EXPECT_THAT(output_, HasSubstr("    chunk : IHDR  length     13  CRC32 "));
  EXPECT_THAT(output_, HasSubstr(" --> CRC32 check invalid! Should be "));
  EXPECT_THAT(output_, HasSubstr("      pass 1: 2 x 1\n"));
  EXPECT_THAT(output_, HasSubstr("      pass 7: 9 x 2\n"));
  EXPECT_THAT(output_, HasSubstr("    swapping BGR(A) to RGB(A)\n"));
  EXPECT_THAT(output_, HasSubstr("    repacked size: "));
  EXPECT_THAT(output_, Not(HasSubstr("changed to")));

  // The image data gets a checksum of its own, whatever it came with.
  std::string file = pngFile(noisePicture(2, 2, 4));
  const size_t checksum = file.size() - pngChunk("IEND", "").size() - 1;
  file[checksum] = static_cast<char>(file[checksum] ^ 1);
  EXPECT_TRUE(decodedPng(convert(file)));
  EXPECT_THAT(output_, HasSubstr(" -> invalid, changed to "));
}

TEST_F(Conversion, ChoosesBetweenConversionAndCopy) {
  struct Case {
    const char* what;
    bool optimised;
    bool sound;
    const char* outputName;
    bool result;
    bool ownNameWritten;     // under the source's name
    bool outputIsTheSource;  // byte for byte, under the output name
  };
  for (const Case& c : {
           Case{"optimised", true, true, "icon.png", true, true, false},
           Case{"standard", false, true, "icon.png", true, true, true},
           Case{"damaged", true, false, "icon.png", false, false, false},
           Case{"other name", true, true, "other.png", true, true, true},
           Case{"damaged, other name", true, false, "other.png", true, false, true},
       }) {
    SCOPED_TRACE(c.what);
    test::TemporaryFolder out;
    PngForm form;
    form.optimised = c.optimised;
    std::string file = pngFile(noisePicture(4, 4, 4), form);
    if (!c.sound) file.resize(file.size() - 20);
    const std::string source = folder_.write("in/icon.png", file);
    EXPECT_EQ(converter_.ConvertCopyIconFile(out.path(), source, c.outputName, "icon.png"),
              c.result);
    const std::string own = out.file("icon.png");
    EXPECT_EQ(decodedPng(own).has_value(), c.ownNameWritten);
    const std::string output = out.file(c.outputName);
    EXPECT_EQ(fileExists(output) && contentsOf(output) == file, c.outputIsTheSource);
  }
}

TEST_F(Conversion, CopiesWholeOrNotAtAll) {
  const std::string source = folder_.write("in/icon.png", std::string(200000, 'x'));
  const std::string target = folder_.write("out/icon.png", "old");
  const std::vector<std::pair<std::string, std::string>> failures = {
      {CopyStandardIconFile(folder_.file("none"), target) ? "copied" : "", "source missing"},
      {CopyStandardIconFile(folder_.file("in"), target) ? "copied" : "", "source is a folder"},
      {CopyStandardIconFile(source, folder_.file("no/icon.png")) ? "copied" : "", "no folder"},
      {CopyStandardIconFile(source, folder_.file("in")) ? "copied" : "", "target is a folder"}};
  for (const auto& [outcome, what] : failures) EXPECT_EQ(outcome, "") << what;
  EXPECT_EQ(contentsOf(target), "old");
  EXPECT_TRUE(CopyStandardIconFile(source, target));
  EXPECT_EQ(contentsOf(target), contentsOf(source));
  EXPECT_EQ(listDirectory(folder_.file("out"))->size(), 1U);
}

}  // namespace
}  // namespace tovrek
