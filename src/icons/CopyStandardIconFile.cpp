// One icon of an app to the package: converted where it is platform-optimised, else as it is.
#include <array>
#include <string>
#include <string_view>

#include "host/AtomicFile.h"
#include "host/InputFile.h"
#include "host/files.h"
#include "icons/IconConverter.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

bool complain(std::string_view text) {
  printOut(std::string(text) + "\n");
  return false;
}

bool copyStream(InputFile& source, AtomicFile& destination) {
  std::array<char, 65536> buffer;
  for (;;) {
    const auto got = source.read(buffer);
    if (!got) return complain("Error reading source file.");
    if (*got == 0) return true;
    if (!destination.write(std::string_view(buffer.data(), *got))) {
      return complain("Error writing destination file.");
    }
  }
}

}  // namespace

bool CopyStandardIconFile(const std::string& source, const std::string& destination) {
  if (isDirectory(destination)) return complain("Cannot open destination file.");
  InputFile from;
  if (!from.openRegular(source)) return complain("Cannot open source file.");
  AtomicFile to;
  if (!to.open(destination)) return complain("Cannot open destination file.");
  return copyStream(from, to) &&
         (to.commit(nullptr, 0666 & ~creationMask()) || complain("Cannot open destination file."));
}

}  // namespace tovrek
