#include "listing/meant_file.h"

#include "host/files.h"

namespace tovrek::listing {

std::string meantFile(const std::string& path) {
  if (fileExists(path)) return path;
  std::string plain;
  for (size_t i = 0; i < path.size(); ++i) {
    if (path[i] == '\\' && i + 1 < path.size() && path[i + 1] == '\'') continue;
    plain += path[i];
  }
  return fileExists(plain) ? plain : path;
}

}  // namespace tovrek::listing
