// Random icons through the converter: any answer will do, crashes and hangs will not. What comes
// out must be a standard file of the same size that converts again.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "formats/png_size.h"
#include "host/files.h"
#include "icons/IconConverter.h"

namespace {

using tovrek::IconConverter;

class Workplace {
 public:
  Workplace() {
    if (mkdtemp(folder_) == nullptr) std::abort();
  }
  ~Workplace() { tovrek::removeItem(folder_); }
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;

  std::string file(const char* name) const { return std::string(folder_) + "/" + name; }

 private:
  char folder_[32] = "/dev/shm/tovrek-fuzz-XXXXXX";
};

void require(bool condition) {
  if (!condition) std::abort();
}

int convert(const std::string& path, bool processAnyway) {
  IconConverter converter;
  converter.settings().rewrite = true;
  converter.settings().processAnyway = processAnyway;
  converter.settings().listChunks = converter.settings().verbose = true;
  converter.settings().debug = true;
  converter.settings().suffix = "-new";
  return converter.process(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const Workplace workplace;
  const std::string path = workplace.file("icon.png");
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
  const std::optional<tovrek::ImageSize> imageSize = tovrek::readPngSize(path);
  if (convert(path, true) == IconConverter::kFailed) return 0;

  const std::string result = workplace.file("icon-new.png");
  require(imageSize && tovrek::readPngSize(result) == imageSize);
  require(convert(result, false) == IconConverter::kNotOptimised);
  return 0;
}
