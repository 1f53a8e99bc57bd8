#include "launch/programs.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "host/HostRoot.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/process.h"

namespace tovrek::launch {

namespace {

bool isProgram(const std::string& path) {
  return isPlainFile(path) && isExecutable(path);
}

// Companions stand in usr/bin of a folder that has Apple's version file as well. Two of them from
// different installations would otherwise call each other for ever.
bool isCompanionFolder(const std::string& folder) {
  const auto real = realPath(folder);
  if (!real) return false;
  const std::string root = deletingLastPathComponent(deletingLastPathComponent(*real));
  const bool hostRoot =
      root != "/" && real->ends_with("/usr/bin") &&
      fileExists(joinPath(root, "System/Library/CoreServices/SystemVersion.plist"));
  const std::string named = HostRoot::folder();
  return hostRoot || *real == programFolder() ||
         (!named.empty() && *real == realPath(joinPath(named, "usr/bin")));
}

std::vector<std::string> searchFolders() {
  std::vector<std::string> folders;
  const char* inherited = std::getenv("PATH");
  std::string_view rest = inherited == nullptr ? "" : inherited;
  while (!rest.empty()) {
    const std::string_view folder = rest.substr(0, rest.find(':'));
    rest.remove_prefix(std::min(rest.size(), folder.size() + 1));
    if (!folder.empty()) folders.emplace_back(folder);
  }
  folders.insert(folders.end(), {"/usr/bin", "/bin"});
  return folders;
}

}  // namespace

std::optional<std::string> findCompanion(const std::string& name) {
  const std::string root = HostRoot::folder();
  if (!root.empty()) {
    const std::string inRoot = joinPath(joinPath(root, "usr/bin"), name);
    if (isProgram(inRoot)) return inRoot;
  }
  const std::string beside = joinPath(programFolder(), name);
  return isProgram(beside) ? std::optional(beside) : std::nullopt;
}

std::optional<std::string> findHostProgram(const std::string& name) {
  for (const std::string& folder : searchFolders()) {
    const std::string candidate = joinPath(folder, name);
    // A link to this very program may stand in any folder.
    if (isProgram(candidate) && !isCompanionFolder(folder) &&
        realPath(candidate) != programPath()) {
      return candidate;
    }
  }
  return std::nullopt;
}

int becomeProgram(const std::string& path, const std::vector<std::string>& arguments,
                  const Streams& streams) {
  constexpr int kCannotRun = 126;
  std::vector<std::string> words = {path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  streams.error(fmt::format("{}: {}\n", path, replaceProcess(words)));
  return kCannotRun;
}

}  // namespace tovrek::launch
