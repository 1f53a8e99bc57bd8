// Random icons through the converter: any answer will do, crashes and hangs will not.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <fstream>

#include "formats/ImageSurface.h"
#include "icons/IconConverter.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static char folder[] = "/dev/shm/tovrek-fuzz-XXXXXX";
  static const char* made = mkdtemp(folder);
  if (made == nullptr || freopen("/dev/null", "w", stdout) == nullptr) std::abort();
  const std::string path = std::string(folder) + "/icon.png";
  std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(data), size);
  tovrek::IconConverter converter;
  converter.settings().rewrite = converter.settings().processAnyway = true;
  converter.settings().listChunks = converter.settings().verbose = true;
  converter.settings().suffix = "-new";
  converter.process(path);
  tovrek::readPngSize(path);
  return 0;
}
