#include "host/HostRoot.h"

#include <cstdlib>

#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {

std::string HostRoot::folder() {
  if (const char* named = std::getenv("TOVREK_HOST_ROOT"); named != nullptr && *named != '\0') {
    return standardizePath(named);
  }
  const std::string beside = joinPath(programFolder(), "host");
  return isDirectory(beside) ? beside : "";
}

std::string HostRoot::resolve(const std::string& path) {
  const std::string root = folder();
  if (root.empty() || path.empty() || path.front() != '/') return path;
  const std::string replacement = joinPath(root, path);
  return fileExists(replacement) ? replacement : path;
}

bool HostRoot::exists(const std::string& path) {
  return fileExists(resolve(path));
}

std::string HostRoot::searchPath() {
  const char* inherited = std::getenv("PATH");
  const std::string rest = inherited != nullptr && *inherited != '\0' ? inherited : "/usr/bin:/bin";
  const std::string root = folder();
  return root.empty() ? rest : joinPath(root, "usr/bin") + ":" + rest;
}

}  // namespace tovrek
