// Hostile and damaged icons: one message, no result, no crash, no memory beyond the file's worth.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "host/files.h"
#include "icons/IconConverter.h"
#include "tests/icons/decoded.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

using test::bigEndian32;
using test::cgbiChunk;
using test::deflated;
using test::noisePicture;
using test::pngChunk;
using test::pngFile;
using test::PngForm;
using test::pngHeaderChunk;
using test::pngSignature;

class Damage : public testing::Test {
 protected:
  Damage() {
    createDirectories(folder_.file("out"));
    converter_.settings().outputDirectory = folder_.file("out");
    converter_.settings().rewrite = true;
  }

  int process(const std::string& file) {
    source_ = folder_.write("icon.png", file);
    testing::internal::CaptureStdout();
    const int result = converter_.process(source_);
    output_ = testing::internal::GetCapturedStdout();
    return result;
  }
  bool wroteNothing() const { return listDirectory(folder_.file("out"))->empty(); }

  test::TemporaryFolder folder_;
  IconConverter converter_;
  std::string source_;
  std::string output_;
};

TEST_F(Damage, EveryTruncationIsRefused) {
  PngForm form;
  form.imageChunks = 2;
  form.interlaced = true;
  const std::string file = pngFile(noisePicture(7, 6, 4), form);
  const size_t firstChunkEnd = pngSignature().size() + cgbiChunk().size();
  for (size_t size = 0; size < file.size(); size++) {
    SCOPED_TRACE(size);
    // Without any chunk there is no mark of the optimised form either.
    const bool unmarked = size >= pngSignature().size() && size < pngSignature().size() + 4;
    ASSERT_EQ(process(file.substr(0, size)),
              unmarked ? IconConverter::kNotOptimised : IconConverter::kFailed);
    ASSERT_EQ(std::count(output_.begin(), output_.end(), '\n'), 1) << output_;
    ASSERT_TRUE(wroteNothing());
  }
  ASSERT_LT(firstChunkEnd, file.size());
}

TEST_F(Damage, EveryFlippedByteEndsInAnAnswer) {
  const std::string file = pngFile(noisePicture(5, 6, 4));
  for (size_t i = 0; i < file.size(); i++) {
    for (const char mask : {'\x01', '\x80', '\xff'}) {
      std::string damaged = file;
      damaged[i] = static_cast<char>(damaged[i] ^ mask);
      const int result = process(damaged);
      ASSERT_TRUE(result == IconConverter::kFailed || result == IconConverter::kConverted ||
                  result == IconConverter::kNotOptimised);
      ASSERT_EQ(std::count(output_.begin(), output_.end(), '\n'), 1) << i << output_;
    }
  }
}

// A file of an optimised icon around the given header and image chunks.
std::string iconOf(const std::string& header, const std::string& rest) {
  return pngSignature() + cgbiChunk() + header + rest + pngChunk("IEND", "");
}

std::string image(const std::string& rows) {
  return pngChunk("IDAT", deflated(rows));
}

TEST_F(Damage, NamesTheFault) {
  const std::string pixel = image(std::string(5, '\0'));
  const std::string one = pngHeaderChunk(1, 1);
  const std::string end = pngChunk("IEND", "");
  const std::string start = pngSignature() + cgbiChunk();
  const std::string zeros(64, '\0');
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"GIF89a, surely", "not a PNG file"},
      {start + bigEndian32(0xffffffff) + "IDAT", "invalid chunk size"},
      {start + bigEndian32(0x7fffffff) + "IDAT", "invalid chunk size"},
      {start + bigEndian32(20) + "IDAT", "premature end of file"},
      {start + one + pixel, "missing IEND chunk"},
      {iconOf(pixel, ""), "no IHDR chunk found"},
      {start + end, "no IHDR chunk found"},
      {iconOf(pngChunk("tEXt", "a") + one, pixel), "no IHDR chunk found"},
      {iconOf(pngChunk("IHDR", zeros.substr(0, 12)), pixel), "IHDR chunk length incorrect"},
      {iconOf(pngHeaderChunk(0, 1), pixel), "image dimensions invalid"},
      {iconOf(pngHeaderChunk(1, 0), pixel), "image dimensions invalid"},
      {iconOf(pngHeaderChunk(0x80000000, 1), pixel), "image dimensions invalid"},
      {iconOf(pngHeaderChunk(1, 1, 8, 6, 0, 1), pixel), "unknown compression type 1"},
      {iconOf(pngHeaderChunk(1, 1, 8, 6, 0, 0, 2), pixel), "unknown filter type 2"},
      {iconOf(pngHeaderChunk(1, 1, 8, 6, 2), pixel), "unknown interlace type 2"},
      {iconOf(pngHeaderChunk(1, 1, 0, 0), pixel), "invalid bit depth 0 for color type 0"},
      {iconOf(pngHeaderChunk(1, 1, 4, 6), pixel), "invalid bit depth 4 for color type 6"},
      {iconOf(pngHeaderChunk(1, 1, 16, 3), pixel), "invalid bit depth 16 for color type 3"},
      {iconOf(pngHeaderChunk(1, 1, 8, 5), pixel), "unknown color type 5"},
      {iconOf(one, ""), "no IDAT chunks found"},
      {iconOf(one, pngChunk("IDAT", "") + pngChunk("IDAT", "")), "all IDAT chunks are empty"},
      {iconOf(one, pixel + pngChunk("tEXt", "a") + pixel), "IDAT chunks are not consecutive"},
      {iconOf(one, pngChunk("IDAT", "\xff\xff\xff")), "unspecified decompression error"},
      {iconOf(one, image(zeros)), "unspecified decompression error"},
      {iconOf(one, image(zeros.substr(0, 4))), "decompression error, expected 5 but got 4 bytes"},
      {iconOf(one, image("\x05" + zeros.substr(0, 4))), "unknown row filter type (5)"},
      {iconOf(pngHeaderChunk(1, 2), image(zeros.substr(0, 5) + "\xff" + zeros.substr(0, 4))),
       "unknown row filter type (255)"},
  };
  for (const auto& [file, message] : cases) {
    EXPECT_EQ(process(file), IconConverter::kFailed) << message;
    EXPECT_EQ(output_, source_ + " : " + message + "\n");
    EXPECT_TRUE(wroteNothing()) << message;
  }
  converter_.settings().verbose = true;
  process(iconOf(one, ""));
  EXPECT_TRUE(output_.ends_with("\n    no IDAT chunks found\n")) << output_;
}

TEST_F(Damage, SizesFarBeyondTheFileTakeNoMemory) {
  const std::string pixel = image(std::string(5, '\0'));
  const std::vector<std::pair<std::string, std::string>> cases = {
      {pngHeaderChunk(0x7fffffff, 0x7fffffff),
       "decompression error, expected 18446744058677166083 but got 5 bytes"},
      {pngHeaderChunk(0x7fffffff, 1), "decompression error, expected 8589934589 but got 5 bytes"},
      {pngHeaderChunk(1, 0x7fffffff, 8, 6, 1),
       "decompression error, expected 10737418235 but got 5 bytes"},
      {pngHeaderChunk(6000, 6000, 8, 2), "decompression error, expected 108006000 but got 5 bytes"},
  };
  for (const auto& [header, message] : cases) {
    EXPECT_EQ(process(iconOf(header, pixel)), IconConverter::kFailed);
    EXPECT_EQ(output_, source_ + " : " + message + "\n");
  }
  // A file that is large only on paper.
  source_ = folder_.write("icon.png", pngSignature() + cgbiChunk() + bigEndian32(290 << 20));
  std::filesystem::resize_file(source_, 300 << 20);
  converter_.settings().debug = true;
  testing::internal::CaptureStdout();
  EXPECT_EQ(converter_.process(source_), IconConverter::kFailed);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "    informational : no memory for chunk length 304087040\n" + source_ +
                " : out of memory\n");
  // A stream that would grow a thousand times stops at what the header promised.
  EXPECT_EQ(process(iconOf(pngHeaderChunk(8, 8), image(std::string(size_t{64} << 20, '\0')))),
            IconConverter::kFailed);
  EXPECT_EQ(output_, source_ + " : unspecified decompression error\n");
}

TEST_F(Damage, ToleratesWhatDoesNoHarm) {
  const std::string sound = pngFile(noisePicture(3, 3, 4));
  const std::string empty = pngChunk("IDAT", "");
  const std::string oneRow(5, '\0');
  const std::vector<std::string> files = {
      iconOf(pngHeaderChunk(1, 1), empty + image(oneRow) + empty),
      // Bytes behind the end of the stream inside the image data.
      iconOf(pngHeaderChunk(1, 1), pngChunk("IDAT", deflated(oneRow) + "rest")),
  };
  for (const std::string& file : files) {
    EXPECT_EQ(process(file), IconConverter::kConverted) << output_;
    EXPECT_TRUE(test::decodedPng(folder_.file("out/icon.png")));
  }
  for (const std::string& rest : {std::string("x"), pngChunk("IDAT", "more"), sound}) {
    EXPECT_EQ(process(sound + rest), IconConverter::kConverted);
    EXPECT_TRUE(output_.starts_with(source_ + " : Extra data after IEND, very suspicious! Excluded "
                                              "from conversion\n"))
        << output_;
    EXPECT_TRUE(test::contentsOf(folder_.file("out/icon.png")).ends_with(pngChunk("IEND", "")));
  }
}

TEST_F(Damage, DebugExplainsBrokenChunks) {
  converter_.settings().debug = true;
  const std::string start = pngSignature() + cgbiChunk();
  const std::vector<std::pair<std::string, std::string>> cases = {
      {start + bigEndian32(99) + "IDAT", "    informational : chunk length 99 larger than file\n"},
      {start + bigEndian32(9) + "IDAT", "    informational : failed to read chunk length 9\n"},
      {pngSignature() + "CgB", "    informational : failed to read chunk length"},
      {start + bigEndian32(1) + "IDATx12", "    informational : failed to read chunk crc32"},
  };
  for (const auto& [file, message] : cases) {
    EXPECT_NE(process(file), IconConverter::kConverted);
    EXPECT_TRUE(output_.starts_with(message)) << output_;
  }
  EXPECT_TRUE(wroteNothing());
}

TEST_F(Damage, WhatIsNoFileOrCannotBeWritten) {
  const std::string pipe = folder_.file("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (const std::string& path : {pipe, folder_.file("none"), folder_.path()}) {
    testing::internal::CaptureStdout();
    EXPECT_EQ(converter_.process(path), IconConverter::kFailed);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              path + " : not found or could not be opened\n");
  }
  converter_.settings().outputDirectory = folder_.file("no such folder");
  EXPECT_EQ(process(pngFile(noisePicture(2, 2, 4))), IconConverter::kFailed);
  EXPECT_TRUE(output_.ends_with("    failed to create output file!\n"));
}

}  // namespace
}  // namespace tovrek
