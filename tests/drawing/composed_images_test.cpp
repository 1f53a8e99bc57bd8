// Surfaces and composed images.
#include "drawing/composed_images.h"

#include <gtest/gtest.h>

#include "tests/support/PngBuilder.h"
#include "tests/support/TemporaryFolder.h"

namespace tovrek {
namespace {

WrapperLogger quiet() {
  WrapperLogger logger("Drawing", std::nullopt);
  logger.setLogDisplayLevel(0);
  return logger;
}

// A standard file of one colour.
std::string plain(uint32_t width, uint32_t height, const std::vector<uint8_t>& colour) {
  test::Picture picture{width, height, static_cast<int>(colour.size()), {}};
  for (uint32_t i = 0; i < width * height; i++) {
    picture.bytes.insert(picture.bytes.end(), colour.begin(), colour.end());
  }
  test::PngForm form;
  form.optimised = false;
  return test::pngFile(picture, form);
}

TEST(Drawing, CentresTheOverlay) {
  test::TemporaryFolder folder;
  const std::string red = folder.write("red.png", plain(6, 4, {255, 0, 0}));
  const std::string blue = folder.write("blue.png", plain(2, 2, {0, 0, 255, 255}));
  const std::optional<ImageSurface> image = overLayImage(blue, red, quiet());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->size(), (ImageSize{6, 4}));
  for (uint32_t y = 0; y < 4; y++) {
    for (uint32_t x = 0; x < 6; x++) {
      const bool inside = x >= 2 && x < 4 && y >= 1 && y < 3;
      EXPECT_EQ(image->pixel(x, y), inside ? 0xff0000ff : 0xffff0000) << x << "," << y;
    }
  }
  // A larger overlay covers the background and is cut off.
  const std::optional<ImageSurface> covered = overLayImage(red, blue, quiet());
  ASSERT_TRUE(covered);
  EXPECT_EQ(covered->size(), (ImageSize{2, 2}));
  EXPECT_EQ(covered->pixel(1, 1), 0xffff0000);

  const std::string out = folder.file("out.png");
  ErrorText error;
  ASSERT_TRUE(image->writePng(out, &error)) << error.text();
  EXPECT_EQ(ImageSurface::readPng(out)->pixel(2, 1), 0xff0000ff);
  EXPECT_FALSE(image->writePng(folder.file("no/out.png"), &error));
  EXPECT_TRUE(error.isSet());
}

TEST(Drawing, BlendsTranslucentPixels) {
  test::TemporaryFolder folder;
  const auto image = overLayImage(folder.write("half.png", plain(1, 1, {255, 0, 0, 128})),
                                  folder.write("white.png", plain(1, 1, {255, 255, 255})), quiet());
  ASSERT_TRUE(image);
  EXPECT_EQ(image->pixel(0, 0), 0xffff7f7f);
}

TEST(Drawing, RefusesWhatCannotBeDrawn) {
  test::TemporaryFolder folder;
  const std::string good = folder.write("g.png", plain(1, 1, {1, 2, 3}));
  const std::string bomb =
      folder.write("b.png", test::pngSignature() + test::pngHeaderChunk(0x7fffffff, 0x7fffffff));
  const std::string cut = folder.write("c.png", plain(9, 9, {1, 2, 3}).substr(0, 50));
  const std::string text = folder.write("t.png", "text");
  for (const std::string& bad : {bomb, cut, text, folder.file("none")}) {
    EXPECT_FALSE(overLayImage(bad, good, quiet())) << bad;
    EXPECT_FALSE(overLayImage(good, bad, quiet())) << bad;
  }
  for (const ImageSize size : {ImageSize{0, 1}, {1, 0}, {0x7fffffff, 0x7fffffff}, {100000, 1}}) {
    EXPECT_FALSE(createBitmapContextOfSize(size, quiet()));
  }
  EXPECT_EQ(createBitmapContextOfSize({3, 2}, quiet())->pixel(2, 1), 0U);
}

}  // namespace
}  // namespace tovrek
