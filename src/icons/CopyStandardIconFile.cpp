#include <array>
#include <string>
#include <string_view>

#include "host/StdioFile.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "icons/IconConverter.h"
#include "log/SystemLog.h"

namespace tovrek {
namespace {

bool complain(std::string_view text) {
  printOut(std::string(text) + "\n");
  return false;
}

bool copyStream(std::FILE* source, std::FILE* destination) {
  std::array<char, 65536> buffer;
  size_t got = 0;
  while ((got = std::fread(buffer.data(), 1, buffer.size(), source)) > 0) {
    if (std::fwrite(buffer.data(), 1, got, destination) != got) {
      return complain("Error writing destination file.");
    }
  }
  return std::ferror(source) == 0 || complain("Error reading source file.");
}

// Fills `destination`, which may be left incomplete.
bool copyInto(const std::string& source, const std::string& destination) {
  StdioFile from = openRegularFile(source);
  if (from == nullptr) return complain("Cannot open source file.");
  StdioFile to(std::fopen(destination.c_str(), "wbxe"));
  if (to == nullptr) return complain("Cannot open destination file.");
  if (!copyStream(from.get(), to.get())) return false;
  if (std::fclose(from.release()) != 0) return complain("Error closing source file.");
  return std::fclose(to.release()) == 0 || complain("Error closing destination file.");
}

}  // namespace

// Through a file beside the target, so that no half of an icon ever stands under its name.
bool CopyStandardIconFile(const std::string& source, const std::string& destination) {
  if (isDirectory(destination)) return complain("Cannot open destination file.");
  const std::string scratch =
      joinPath(containingFolder(destination), ".icon-" + uniqueString() + ".tmp");
  bool copied = copyInto(source, scratch);
  if (copied && std::rename(scratch.c_str(), destination.c_str()) != 0) {
    copied = complain("Cannot open destination file.");
  }
  if (!copied && itemExistsNoFollow(scratch)) removeItem(scratch);
  return copied;
}

}  // namespace tovrek
