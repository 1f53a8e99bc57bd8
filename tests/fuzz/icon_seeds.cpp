#include "tests/fuzz/icon_seeds.h"

#include "tests/support/PngBuilder.h"

namespace tovrek::test {
namespace {

using Seeds = std::map<std::string, std::string>;

void addSoundForms(Seeds& seeds) {
  for (const int channels : {3, 4}) {
    for (const bool interlaced : {false, true}) {
      for (int filter = -1; filter < 5; filter++) {
        PngForm form;
        form.interlaced = interlaced;
        form.filter = filter;
        form.imageChunks = filter == 2 ? 3 : 1;
        const std::string name = std::string(channels == 3 ? "rgb" : "rgba") +
                                 (interlaced ? "-adam7" : "") + "-filter" + std::to_string(filter);
        seeds[name] = pngFile(noisePicture(9, 6, channels), form);
      }
    }
  }
  PngForm standard;
  standard.optimised = false;
  seeds["standard"] = pngFile(noisePicture(4, 3, 4), standard);
  seeds["one-pixel"] = pngFile(noisePicture(1, 1, 4));
  PngForm withText;
  withText.extraChunks = pngChunk("tEXt", "a") + pngChunk("pHYs", std::string(9, '\1'));
  seeds["other-chunks"] = pngFile(noisePicture(2, 2, 3), withText);
}

void addOtherPixelFormats(Seeds& seeds) {
  const std::string start = pngSignature() + cgbiChunk();
  const std::string end = pngChunk("IEND", "");
  const std::string data = pngChunk("IDAT", deflated(std::string(6, '\0')));
  seeds["grey"] = start + pngHeaderChunk(2, 2, 8, 0) + data + end;
  seeds["deep"] = start + pngHeaderChunk(1, 1, 16, 2) + data + end;
  seeds["palette"] = start + pngHeaderChunk(9, 3, 1, 3) + pngChunk("PLTE", "abcdef") + data + end;
}

void addDamaged(Seeds& seeds) {
  const std::string start = pngSignature() + cgbiChunk();
  const std::string end = pngChunk("IEND", "");
  const std::string header = pngHeaderChunk(1, 1);
  const auto image = [](const std::string& rows) { return pngChunk("IDAT", deflated(rows)); };
  const std::string pixel = image(std::string(5, '\0'));
  const std::string sound = start + header + pixel + end;
  seeds["cut"] = sound.substr(0, sound.size() - 20);
  seeds["wrong-crc"] = start + header + pixel.substr(0, pixel.size() - 1) + "?" + end;
  seeds["wide"] = start + pngHeaderChunk(0x7fffffff, 0x7fffffff) + pixel + end;
  seeds["tall-adam7"] = start + pngHeaderChunk(1, 0xffffffff, 8, 6, 1) + pixel + end;
  seeds["long-chunk"] = start + bigEndian32(0xfffffffc) + "IHDR" + pixel + end;
  seeds["bomb"] = start + pngHeaderChunk(8, 8) + image(std::string(1 << 20, '\0')) + end;
  seeds["empty-image-data"] = start + header + pngChunk("IDAT", "") + end;
  seeds["short-image-data"] = start + header + image("\1\2") + end;
  seeds["filter-5"] = start + header + image(std::string("\5\0\0\0\0", 5)) + end;
  seeds["two-runs"] = start + header + pixel + pngChunk("tEXt", "a") + pixel + end;
  seeds["data-after-end"] = sound + sound;
}

}  // namespace

Seeds iconSeeds() {
  Seeds seeds;
  addSoundForms(seeds);
  addOtherPixelFormats(seeds);
  addDamaged(seeds);
  return seeds;
}

}  // namespace tovrek::test
