#include <fcntl.h>
#include <linux/close_range.h>
#include <linux/if_packet.h>
#include <linux/landlock.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <stdio.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/vfs.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>

#include "host/file_io.h"
#include "host/platform.h"
#include "host/resources.h"
#include "host/unique_fd.h"

namespace tovrek {
namespace {

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

uint64_t accessesOf(long version) {
  uint64_t accesses = kFirstVersion;
  // Without this one, files cannot be moved from one folder to another at all.
  if (version >= 2) accesses |= LANDLOCK_ACCESS_FS_REFER;
  if (version >= 3) accesses |= kTruncate;
  return accesses;
}

// What does not exist needs no rule: it cannot be written, and made only where a folder is named.
bool allow(int ruleset, const std::string& path, uint64_t accesses) {
  const UniqueFd item(::open(path.c_str(), O_PATH | O_CLOEXEC));
  struct stat info {};
  if (!item.valid() || ::fstat(item.get(), &info) != 0) return true;
  landlock_path_beneath_attr rule{};
  rule.allowed_access = S_ISDIR(info.st_mode) ? accesses : accesses & kForFiles;
  rule.parent_fd = item.get();
  return ::syscall(SYS_landlock_add_rule, ruleset, LANDLOCK_RULE_PATH_BENEATH, &rule, 0) == 0;
}

// What a failed copy_file_range() comes to: none where another way may do it.
std::optional<bool> failedToCopy() {
  switch (errno) {
    case EXDEV:
    case EINVAL:
    case ENOSYS:
    case EOPNOTSUPP:
    case EBADF:
    case ETXTBSY:
      return std::nullopt;
    default:
      return false;
  }
}

constexpr size_t kMostCopied = size_t{1} << 30;  // by one call

}  // namespace

bool openPipe(int (&ends)[2]) {
  return ::pipe2(ends, O_CLOEXEC) == 0;
}

bool openSocketPair(int (&ends)[2]) {
  return ::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) == 0;
}

bool sendQuietly(int socket, const void* message, size_t size) {
  return ::send(socket, message, size, MSG_NOSIGNAL | MSG_DONTWAIT) >= 0;
}

void keepFromChildren(int firstDescriptor) {
#ifdef CLOSE_RANGE_CLOEXEC
  ::close_range(static_cast<unsigned>(firstDescriptor), ~0U, CLOSE_RANGE_CLOEXEC);
#endif
}

void closeFrom(int firstDescriptor) {
#ifdef CLOSE_RANGE_CLOEXEC
  if (::close_range(static_cast<unsigned>(firstDescriptor), ~0U, 0) == 0) return;
#endif
  const int count = ::getdtablesize();
  for (int fd = firstDescriptor; fd < count; ++fd) ::close(fd);
}

int placeFlags() {
  return O_PATH | O_DIRECTORY | O_CLOEXEC;
}

// Kernels before Linux 5.6 and some sandboxes have no openat2.
bool openInOneCall(int root, const char* below, int flags, int* fd) {
  open_how how{};
  how.flags = static_cast<unsigned>(flags);
  how.resolve = RESOLVE_BENEATH | RESOLVE_NO_SYMLINKS;
  *fd = static_cast<int>(::syscall(SYS_openat2, root, below, &how, sizeof(how)));
  return *fd >= 0 || (errno != ENOSYS && errno != EPERM);
}

// The kernel writes more than a path for what is removed, or lies outside of this root, meanwhile.
std::optional<std::string> resolvedAtOnce(const std::string& path) {
  const UniqueFd item(::open(path.c_str(), O_PATH | O_CLOEXEC));
  if (!item.valid()) return std::nullopt;
  std::array<char, PATH_MAX> room{};
  const std::string link = "/proc/self/fd/" + std::to_string(item.get());
  const ssize_t size = ::readlink(link.c_str(), room.data(), room.size());
  if (size <= 0 || static_cast<size_t>(size) == room.size()) return std::nullopt;
  std::string found(room.data(), static_cast<size_t>(size));
  if (found.front() != '/' || found.ends_with(" (deleted)")) return std::nullopt;
  return found;
}

std::optional<bool> renameExclusively(int fromFolder, const char* from, int toFolder,
                                      const char* to) {
  if (::renameat2(fromFolder, from, toFolder, to, RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  return std::nullopt;
}

// Lets the kernel share or move the data.
std::optional<bool> copyBySystem(int from, int to) {
  for (;;) {
    const ssize_t copied = ::copy_file_range(from, nullptr, to, nullptr, kMostCopied, 0);
    if (copied == 0) return true;
    if (copied < 0 && errno != EINTR) return failedToCopy();
  }
}

std::optional<bool> copyPartBySystem(int from, FilePart* part, int to) {
  auto at = static_cast<off64_t>(part->offset);
  while (part->size != 0) {
    const size_t wanted = std::min<uint64_t>(part->size, kMostCopied);
    const ssize_t copied = ::copy_file_range(from, &at, to, nullptr, wanted, 0);
    if (copied == 0) return std::nullopt;
    if (copied < 0 && errno != EINTR) return failedToCopy();
    if (copied < 0) continue;
    part->offset += static_cast<uint64_t>(copied);
    part->size -= static_cast<uint64_t>(copied);
  }
  return true;
}

int64_t changeTime(const struct stat& info) {
  return int64_t{info.st_ctim.tv_sec} * 1'000'000'000 + info.st_ctim.tv_nsec;
}

bool isSameAsNewIn(const std::string& folder, const std::string& file) {
  struct stat place {};
  struct stat info {};
  const auto hasAttributes = [](const std::string& path) {
    return ::llistxattr(path.c_str(), nullptr, 0) > 0;
  };
  return ::stat(folder.c_str(), &place) == 0 && (place.st_mode & S_ISGID) == 0 &&
         ::lstat(file.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
         info.st_gid == ::getegid() && !hasAttributes(folder) && !hasAttributes(file);
}

bool reserveSpace(int fd, uint64_t size) {
  const int failure = ::posix_fallocate(fd, 0, static_cast<off_t>(size));
  if (failure != 0) errno = failure;
  return failure == 0;
}

void startWriting(int fd, uint64_t offset, uint64_t size) {
  ::sync_file_range(fd, static_cast<off64_t>(offset), static_cast<off64_t>(size),
                    SYNC_FILE_RANGE_WRITE);
}

void readPages([[maybe_unused]] void* address, [[maybe_unused]] size_t size) {
#ifdef MADV_POPULATE_READ
  // Systems before Linux 5.14 refuse, and read page by page.
  ::madvise(address, size, MADV_POPULATE_READ);
#endif
}

bool isInMemory(const std::string& folder) {
  struct statfs info {};
  return ::statfs(folder.c_str(), &info) == 0 &&
         (info.f_type == TMPFS_MAGIC || info.f_type == RAMFS_MAGIC);
}

std::string startedPath() {
  constexpr char kProgram[] = "/proc/self/exe";
  if (::access(kProgram, F_OK) == 0) return kProgram;
  // Without /proc: how the kernel was told to start it, which is no use when relative.
  const auto* started = reinterpret_cast<const char*>(::getauxval(AT_EXECFN));
  return started == nullptr || *started != '/' ? "" : started;
}

std::optional<std::vector<unsigned char>> linkAddress(const sockaddr* address) {
  if (address->sa_family != AF_PACKET) return std::nullopt;
  const auto* link = reinterpret_cast<const sockaddr_ll*>(address);
  if (link->sll_halen != 6) return std::nullopt;
  return std::vector<unsigned char>(link->sll_addr, link->sll_addr + 6);
}

int watchChild(pid_t child) {
  // The library's header is no C++ yet.
  return static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
}

// fork() takes the locks of malloc, which the interrupted code may hold.
pid_t forkInHandler() {
#if defined(__GLIBC__) && __GLIBC_PREREQ(2, 34)
  return ::_Fork();
#else
  return ::fork();
#endif
}

void setProcessName(const char* name) {
  ::prctl(PR_SET_NAME, name);
}

bool restrictTo(const NeededPlaces& places) {
  // The first version forbids every move between folders, which runs cannot do without.
  constexpr long kLeastVersion = 2;
  const long version =
      ::syscall(SYS_landlock_create_ruleset, nullptr, 0, LANDLOCK_CREATE_RULESET_VERSION);
  if (version < kLeastVersion) return false;
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

}  // namespace tovrek
