// Nobody has run this yet; scripts/check --macos compiles it on Linux (see docs/macos.md).
#include <fcntl.h>
#include <mach-o/dyld.h>
#include <net/if_dl.h>
#include <stdio.h>
#include <sys/mount.h>
#include <sys/param.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "host/platform.h"
#include "host/resources.h"

namespace tovrek {
namespace {

bool keepBothFromChildren(const int (&ends)[2]) {
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return true;
}

}  // namespace

// A child that another thread starts between the two calls inherits the ends; only Batch has such
// threads, and it starts its children without pipes.
bool openPipe(int (&ends)[2]) {
  return ::pipe(ends) == 0 && keepBothFromChildren(ends);
}

bool openSocketPair(int (&ends)[2]) {
  return ::socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) == 0 && keepBothFromChildren(ends);
}

bool sendQuietly(int socket, const void* message, size_t size) {
  const int on = 1;
  return ::setsockopt(socket, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on) == 0 &&
         ::send(socket, message, size, MSG_DONTWAIT) >= 0;
}

void keepFromChildren(int firstDescriptor) {
  const int count = ::getdtablesize();
  for (int fd = firstDescriptor; fd < count; ++fd) ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

void closeFrom(int firstDescriptor) {
  const int count = ::getdtablesize();
  for (int fd = firstDescriptor; fd < count; ++fd) ::close(fd);
}

int placeFlags() {
  return O_RDONLY | O_DIRECTORY | O_CLOEXEC;
}

bool openInOneCall(int /*root*/, const char* /*below*/, int /*flags*/, int* /*fd*/) {
  return false;
}

std::optional<std::string> resolvedAtOnce(const std::string& /*path*/) {
  return std::nullopt;
}

std::optional<bool> renameExclusively(int fromFolder, const char* from, int toFolder,
                                      const char* to) {
  if (::renameatx_np(fromFolder, from, toFolder, to, RENAME_EXCL) == 0) return true;
  if (errno != ENOTSUP && errno != EINVAL) return false;
  return std::nullopt;
}

std::optional<bool> copyBySystem(int /*from*/, int /*to*/) {
  return std::nullopt;
}

std::optional<bool> copyPartBySystem(int /*from*/, FilePart* /*part*/, int /*to*/) {
  return std::nullopt;
}

int64_t changeTime(const struct stat& info) {
  return int64_t{info.st_ctimespec.tv_sec} * 1'000'000'000 + info.st_ctimespec.tv_nsec;
}

// The group always comes from the folder.
bool isSameAsNewIn(const std::string& /*folder*/, const std::string& /*file*/) {
  return false;
}

bool reserveSpace(int fd, uint64_t size) {
  fstore_t room{};
  room.fst_flags = F_ALLOCATEALL;
  room.fst_posmode = F_PEOFPOSMODE;
  room.fst_length = static_cast<off_t>(size);
  return ::fcntl(fd, F_PREALLOCATE, &room) != -1 && ::ftruncate(fd, room.fst_length) == 0;
}

void startWriting(int /*fd*/, uint64_t /*offset*/, uint64_t /*size*/) {}

void readPages(void* /*address*/, size_t /*size*/) {}

bool isInMemory(const std::string& folder) {
  struct statfs info {};
  return ::statfs(folder.c_str(), &info) == 0 && std::string(info.f_fstypename) == "tmpfs";
}

std::string startedPath() {
  uint32_t size = 0;
  _NSGetExecutablePath(nullptr, &size);
  std::vector<char> path(size + 1);
  return _NSGetExecutablePath(path.data(), &size) == 0 ? path.data() : "";
}

std::optional<std::vector<unsigned char>> linkAddress(const sockaddr* address) {
  if (address->sa_family != AF_LINK) return std::nullopt;
  const auto* link = reinterpret_cast<const sockaddr_dl*>(address);
  if (link->sdl_alen != 6) return std::nullopt;
  const auto* bytes = reinterpret_cast<const unsigned char*>(LLADDR(link));
  return std::vector<unsigned char>(bytes, bytes + 6);
}

int watchChild(pid_t /*child*/) {
  return -1;
}

pid_t forkInHandler() {
  return ::fork();
}

// Tools show the file that was started.
void setProcessName(const char* /*name*/) {}

bool restrictTo(const NeededPlaces& /*places*/) {
  return false;
}

}  // namespace tovrek
