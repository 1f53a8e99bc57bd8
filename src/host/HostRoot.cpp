#include "host/HostRoot.h"

#include <cerrno>
#include <cstdlib>

#include "host/file_status.h"
#include "host/host_info.h"
#include "host/paths.h"

namespace tovrek {
namespace {

// Stands for a host root of which nobody knows where it is: nothing below it can be run.
constexpr char kUnknown[] = "/dev/null/host";

bool isMissing(const std::string& path) {
  return !statusOf(path) && (errno == ENOENT || errno == ENOTDIR);
}

}  // namespace

std::string HostRoot::folder() {
  if (const char* named = std::getenv("TOVREK_HOST_ROOT"); named != nullptr && *named != '\0') {
    return standardizePath(named);
  }
  const std::string programs = programFolder();
  if (programs.empty()) return kUnknown;
  const std::string beside = joinPath(programs, "host");
  return isMissing(beside) ? "" : beside;
}

std::string HostRoot::resolve(const std::string& path) {
  const std::string root = folder();
  if (root.empty() || path.empty() || path.front() != '/') return path;
  const std::string replacement = joinPath(root, path);
  if (root == kUnknown) return replacement;
  // Only what is not there is left to the system: its own program of that name is another one, and
  // must not be run because ours could not be looked at.
  return isMissing(replacement) ? path : replacement;
}

bool HostRoot::exists(const std::string& path) {
  return fileExists(resolve(path));
}

std::string HostRoot::searchPath() {
  const char* inherited = std::getenv("PATH");
  const std::string rest = inherited != nullptr && *inherited != '\0' ? inherited : "/usr/bin:/bin";
  const std::string root = folder();
  return root.empty() || !canBeInSearchPath() ? rest : joinPath(root, "usr/bin") + ":" + rest;
}

bool HostRoot::canBeInSearchPath() {
  return folder().find(':') == std::string::npos;
}

std::string HostRoot::companion(const std::string& name) {
  const std::string root = folder();
  if (root.empty() || name.empty() || name.find('/') != std::string::npos) return "";
  const std::string path = joinPath(root, "usr/bin/" + name);
  return isExecutable(path) ? path : "";
}

}  // namespace tovrek
