#include "host/confinement.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#ifdef __linux__
#include <linux/landlock.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "host/unique_fd.h"

namespace tovrek {
namespace {

#ifdef __linux__

// In the numbers of the kernel's interface; the headers of Debian 12 know the first two versions.
constexpr uint64_t kTruncate = uint64_t{1} << 14;  // since version 3
constexpr uint64_t kReading = LANDLOCK_ACCESS_FS_READ_FILE | LANDLOCK_ACCESS_FS_READ_DIR;
constexpr uint64_t kForFiles =
    LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_READ_FILE | kTruncate;
constexpr uint64_t kFirstVersion = LANDLOCK_ACCESS_FS_WRITE_FILE | LANDLOCK_ACCESS_FS_REMOVE_DIR |
                                   LANDLOCK_ACCESS_FS_REMOVE_FILE | LANDLOCK_ACCESS_FS_MAKE_CHAR |
                                   LANDLOCK_ACCESS_FS_MAKE_DIR | LANDLOCK_ACCESS_FS_MAKE_REG |
                                   LANDLOCK_ACCESS_FS_MAKE_SOCK | LANDLOCK_ACCESS_FS_MAKE_FIFO |
                                   LANDLOCK_ACCESS_FS_MAKE_BLOCK | LANDLOCK_ACCESS_FS_MAKE_SYM;

long versionOfKernel() {
  return ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
}

uint64_t accessesOf(long version) {
  uint64_t accesses = kFirstVersion;
  // Without this one, files cannot be moved from one folder to another at all.
  if (version >= 2) accesses |= LANDLOCK_ACCESS_FS_REFER;
  if (version >= 3) accesses |= kTruncate;
  return accesses;
}

// What does not exist needs no rule: nothing can be done to it, and it is made only where a folder
// is named.
bool allow(int ruleset, const std::string& path, uint64_t accesses) {
  const UniqueFd item(::open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat info {};
  if (!item.valid() || ::fstat(item.get(), &info) != 0) return true;
  landlock_path_beneath_attr rule{};
  rule.allowed_access = S_ISDIR(info.st_mode) ? accesses : accesses & kForFiles;
  rule.parent_fd = item.get();
  return ::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

bool restrictTo(const NeededPlaces& places, long version) {
  landlock_ruleset_attr attributes{};
  // All kinds are allowed together in every place to write to: the kernel moves no file to where
  // more may be done to it.
  attributes.handled_access_fs = accessesOf(version) | (places.toRead ? kReading : 0);
  const UniqueFd ruleset(
      static_cast<int>(::syscall(SYS_landlock_create_ruleset, &attributes, sizeof(attributes), 0)));
  if (!ruleset.valid()) return false;
  for (const std::string& path : places.toWrite) {
    if (!allow(ruleset.get(), path, attributes.handled_access_fs)) return false;
  }
  for (const std::string& path : places.toRead.value_or(std::vector<std::string>())) {
    if (!allow(ruleset.get(), path, kReading)) return false;
  }
  return ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 &&
         ::syscall(SYS_landlock_restrict_self, ruleset.get(), 0) == 0;
}

#endif

}  // namespace

bool confinementIsOff() {
  const char* wish = std::getenv("TOVREK_CONFINE");
  return wish != nullptr && std::string_view(wish) == "0";
}

Confinement confine([[maybe_unused]] const NeededPlaces& places) {
  if (confinementIsOff()) return Confinement::kOff;
#ifdef __linux__
  // The first version forbids every move between folders, which runs cannot do without.
  constexpr long kLeastVersion = 2;
  const long version = versionOfKernel();
  if (version >= kLeastVersion && restrictTo(places, version)) return Confinement::kOn;
#endif
  return Confinement::kUnsupported;
}

void forbidCoreDumps() {
  // Room for one byte: a collector of core dumps that the kernel starts is started at a limit of
  // none as well, but not at this one.
  const rlimit none{1, 1};
  ::setrlimit(RLIMIT_CORE, &none);
}

}  // namespace tovrek
