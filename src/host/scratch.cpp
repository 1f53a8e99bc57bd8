#include "host/scratch.h"

#include <cstdlib>

#include "host/ItemPath.h"
#include "host/files.h"

namespace tovrek {
namespace {

constexpr const char* kVariable = "TOVREK_SCRATCH";

}  // namespace

void announceScratchFolder(const std::string& folder) {
  // Programs may come to know their files by either name.
  const std::string real = realPath(folder).value_or(folder);
  ::setenv(kVariable, (real == folder ? real : folder + ":" + real).c_str(), 1);
  guardFolder(folder);
}

bool isScratchFile(const std::string& path) {
  const char* named = std::getenv(kVariable);
  std::string_view rest = named == nullptr ? "" : named;
  while (!rest.empty()) {
    const std::string_view folder = rest.substr(0, rest.find(':'));
    rest.remove_prefix(folder.size() == rest.size() ? rest.size() : folder.size() + 1);
    const bool inside = path.starts_with(folder) && path.substr(folder.size()).starts_with('/');
    if (!folder.empty() && inside) return true;
  }
  return false;
}

}  // namespace tovrek
