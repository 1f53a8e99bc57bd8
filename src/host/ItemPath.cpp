#include "host/ItemPath.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string_view>

#include "host/files.h"
#include "host/paths.h"
#include "host/platform.h"

namespace tovrek {
namespace {

constexpr const char* kGuarded = "TOVREK_GUARDED";
// Each begins with a slash and has no empty component, so that this is in none of them.
constexpr std::string_view kSeparator = "//";

// The guarded folder that an absolute path lies below; empty for none.
std::string_view folderAround(std::string_view path, std::string_view list) {
  for (std::string_view rest = list; !rest.empty();) {
    const std::string_view folder = rest.substr(0, rest.find(kSeparator));
    rest.remove_prefix(std::min(rest.size(), folder.size() + kSeparator.size()));
    const bool inside = path.starts_with(folder) && path.substr(folder.size()).starts_with('/');
    if (!folder.empty() && inside) return folder;
  }
  return {};
}

std::string_view guardedFolders() {
  const char* list = std::getenv(kGuarded);
  return list == nullptr ? "" : list;
}

// From the root, without empty and "." components and slashes at the end; ".." stays, since what
// it leads to depends on what stands there.
std::string absolutePath(const std::string& path) {
  std::string whole = path;
  if (!path.starts_with('/')) {
    std::array<char, PATH_MAX> here{};
    if (::getcwd(here.data(), here.size()) == nullptr) return path;
    whole = std::string(here.data()) + "/" + path;
  }
  std::string result;
  for (size_t at = 0; at < whole.size();) {
    const size_t end = std::min(whole.find('/', at), whole.size());
    const std::string_view component = std::string_view(whole).substr(at, end - at);
    if (!component.empty() && component != ".") result.append("/").append(component);
    at = end + 1;
  }
  return result;
}

// Where the system has no single call for it.
UniqueFd openStepByStep(UniqueFd folder, const std::string& below) {
  size_t depth = 0;
  for (size_t at = 0; at < below.size() && folder.valid();) {
    const size_t end = std::min(below.find('/', at), below.size());
    const std::string component = below.substr(at, end - at);
    at = end + 1;
    if (component == ".." && depth == 0) {
      errno = EXDEV;
      return UniqueFd();
    }
    depth = component == ".." ? depth - 1 : depth + 1;
    folder = UniqueFd(::openat(folder.get(), component.c_str(), placeFlags() | O_NOFOLLOW));
  }
  return folder;
}

// False where the system has no call for that; else the answer, with the reason in errno when it is
// not open, is in `fd`.
bool openAtOnce(const UniqueFd& root, const std::string& below, int flags, UniqueFd* fd) {
  int opened = -1;
  const bool known = openInOneCall(root.get(), below.c_str(), flags, &opened);
  *fd = UniqueFd(opened);
  return known;
}

UniqueFd openBelow(UniqueFd root, const std::string& below) {
  if (!root.valid() || below.empty()) return root;
  UniqueFd folder;
  if (openAtOnce(root, below, placeFlags(), &folder)) return folder;
  return openStepByStep(std::move(root), below);
}

// Where an absolute path lies: below which guarded folder (empty for none), and where there.
struct GuardedPlace {
  std::string root;
  std::string below;
};

GuardedPlace guardedPlace(const std::string& path) {
  const std::string_view guarded = guardedFolders();
  if (path.empty() || guarded.empty()) return {};
  const std::string absolute = absolutePath(path);
  const std::string root(folderAround(absolute, guarded));
  return root.empty() ? GuardedPlace() : GuardedPlace{root, absolute.substr(root.size() + 1)};
}

// The last component is no name of an item; what it leads to has one of its own.
bool endsInParent(const std::string& below) {
  return below == ".." || below.ends_with("/..");
}

}  // namespace

void guardFolder(const std::string& folder) {
  // Programs may come to know its files by either name.
  const std::string given = absolutePath(folder);
  const std::string real = realPath(folder).value_or(given);
  std::string list(guardedFolders());
  for (const std::string& name : {given, real}) {
    if (!folderAround(name + "/", list).empty()) continue;
    if (!list.empty()) list += kSeparator;
    list += name;
  }
  ::setenv(kGuarded, list.c_str(), 1);
}

ItemPath::ItemPath(const std::string& path) : name_(path) {
  const GuardedPlace place = guardedPlace(path);
  if (!place.root.empty()) reach(place.root, place.below);
}

void ItemPath::reach(const std::string& root, const std::string& below) {
  guarded_ = true;
  const size_t slash = below.rfind('/');
  const std::string parent = slash == std::string::npos ? "" : below.substr(0, slash);
  name_ = slash == std::string::npos ? below : below.substr(slash + 1);
  if (endsInParent(below)) {
    reached_ = false;
    errno = EINVAL;
    return;
  }
  folder_ = openBelow(UniqueFd(::open(root.c_str(), placeFlags())), parent);
  reached_ = folder_.valid();
}

int ItemPath::folder() const {
  return guarded_ ? folder_.get() : AT_FDCWD;
}

UniqueFd ItemPath::open(int flags, unsigned mode) const {
  if (!reached_) return UniqueFd();
  return UniqueFd(::openat(folder(), name(), guarded_ ? flags | O_NOFOLLOW : flags, mode));
}

UniqueFd openItem(const std::string& path, int flags) {
  const GuardedPlace place = guardedPlace(path);
  if (!place.root.empty() && !endsInParent(place.below)) {
    const UniqueFd root(::open(place.root.c_str(), placeFlags()));
    UniqueFd fd;
    if (!root.valid() || openAtOnce(root, place.below, flags | O_NOFOLLOW, &fd)) return fd;
  }
  return ItemPath(path).open(flags);
}

ItemFolder::ItemFolder(std::string path) : path_(std::move(path)) {
  if (!guardedPlace(path_).root.empty()) folder_ = tovrek::openItem(path_, placeFlags());
}

UniqueFd ItemFolder::openItem(const std::string& below, int flags) const {
  UniqueFd fd;
  const bool isWithin = folder_.valid() && !below.empty() && !endsInParent(below);
  if (isWithin && openAtOnce(folder_, below, flags | O_NOFOLLOW, &fd)) return fd;
  return tovrek::openItem(joinPath(path_, below), flags);
}

}  // namespace tovrek
