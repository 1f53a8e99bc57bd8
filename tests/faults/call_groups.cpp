#include "call_groups.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>

#include <algorithm>

// Calls that newer processors never had; the C library makes others there.
#ifndef SYS_open
#define SYS_open (-1)
#define SYS_creat (-1)
#define SYS_stat (-1)
#define SYS_lstat (-1)
#define SYS_access (-1)
#define SYS_readlink (-1)
#define SYS_rename (-1)
#define SYS_unlink (-1)
#define SYS_rmdir (-1)
#define SYS_mkdir (-1)
#define SYS_link (-1)
#define SYS_symlink (-1)
#define SYS_getdents (-1)
#define SYS_fork (-1)
#define SYS_vfork (-1)
#define SYS_pipe (-1)
#define SYS_dup2 (-1)
#define SYS_chmod (-1)
#define SYS_utimes (-1)
#define SYS_poll (-1)
#endif

namespace tovrek::faults {
namespace {

constexpr Subject kPath = Subject::kPath;
constexpr Subject kDescriptor = Subject::kDescriptor;
constexpr Subject kNone = Subject::kNone;

bool mapsFile(const seccomp_data& data) {
  return (data.args[3] & MAP_ANONYMOUS) == 0;
}

bool mapsMemory(const seccomp_data& data) {
  return !mapsFile(data);
}

// Asking for the present end is no growth.
bool movesEnd(const seccomp_data& data) {
  return data.args[0] != 0;
}

bool duplicates(const seccomp_data& data) {
  return data.args[1] == F_DUPFD || data.args[1] == F_DUPFD_CLOEXEC;
}

std::vector<CallGroup> fileGroups() {
  return {
      {"open",
       EMFILE,
       {{SYS_open, "open", kPath, 0},
        {SYS_creat, "creat", kPath, 0},
        {SYS_openat, "openat", kPath, 1},
        {SYS_openat2, "openat2", kPath, 1}}},
      {"read",
       EIO,
       {{SYS_read, "read", kDescriptor, 0},
        {SYS_pread64, "pread64", kDescriptor, 0},
        {SYS_readv, "readv", kDescriptor, 0},
        {SYS_preadv, "preadv", kDescriptor, 0},
        {SYS_preadv2, "preadv2", kDescriptor, 0}}},
      {"write",
       ENOSPC,
       {{SYS_write, "write", kDescriptor, 0},
        {SYS_pwrite64, "pwrite64", kDescriptor, 0},
        {SYS_writev, "writev", kDescriptor, 0},
        {SYS_pwritev, "pwritev", kDescriptor, 0},
        {SYS_pwritev2, "pwritev2", kDescriptor, 0}}},
      {"close", EIO, {{SYS_close, "close", kDescriptor, 0}}},
      {"copy",
       ENOSPC,
       {{SYS_copy_file_range, "copy_file_range", kDescriptor, 2},
        {SYS_sendfile, "sendfile", kDescriptor, 0},
        {SYS_splice, "splice", kDescriptor, 2}}},
      {"truncate",
       ENOSPC,
       {{SYS_truncate, "truncate", kPath, 0},
        {SYS_ftruncate, "ftruncate", kDescriptor, 0},
        {SYS_fallocate, "fallocate", kDescriptor, 0}}},
      {"fsync",
       EIO,
       {{SYS_fsync, "fsync", kDescriptor, 0},
        {SYS_fdatasync, "fdatasync", kDescriptor, 0},
        {SYS_sync_file_range, "sync_file_range", kDescriptor, 0},
        {SYS_msync, "msync"}}},
      {"seek", EIO, {{SYS_lseek, "lseek", kDescriptor, 0}}},
      {"mmap", ENOMEM, {{SYS_mmap, "mmap", kDescriptor, 4, mapsFile}}},
  };
}

std::vector<CallGroup> folderGroups() {
  return {
      {"stat",
       EIO,
       {{SYS_stat, "stat", kPath, 0},
        {SYS_lstat, "lstat", kPath, 0},
        {SYS_fstat, "fstat", kDescriptor, 0},
        {SYS_newfstatat, "newfstatat", kPath, 1},
        {SYS_statx, "statx", kPath, 1},
        {SYS_access, "access", kPath, 0},
        {SYS_faccessat, "faccessat", kPath, 1},
        {SYS_faccessat2, "faccessat2", kPath, 1}}},
      {"readlink",
       EIO,
       {{SYS_readlink, "readlink", kPath, 0}, {SYS_readlinkat, "readlinkat", kPath, 1}}},
      {"getdents",
       EIO,
       {{SYS_getdents, "getdents", kDescriptor, 0},
        {SYS_getdents64, "getdents64", kDescriptor, 0}}},
      {"rename",
       EIO,
       {{SYS_rename, "rename", kPath, 1},
        {SYS_renameat, "renameat", kPath, 3},
        {SYS_renameat2, "renameat2", kPath, 3}}},
      {"unlink",
       EIO,
       {{SYS_unlink, "unlink", kPath, 0},
        {SYS_unlinkat, "unlinkat", kPath, 1},
        {SYS_rmdir, "rmdir", kPath, 0}}},
      {"mkdir", ENOSPC, {{SYS_mkdir, "mkdir", kPath, 0}, {SYS_mkdirat, "mkdirat", kPath, 1}}},
      {"link",
       ENOSPC,
       {{SYS_link, "link", kPath, 1},
        {SYS_linkat, "linkat", kPath, 3},
        {SYS_symlink, "symlink", kPath, 1},
        {SYS_symlinkat, "symlinkat", kPath, 2}}},
      {"chmod",
       EPERM,
       {{SYS_chmod, "chmod", kPath, 0},
        {SYS_fchmod, "fchmod", kDescriptor, 0},
        {SYS_fchmodat, "fchmodat", kPath, 1}}},
      {"times", EPERM, {{SYS_utimensat, "utimensat", kPath, 1}, {SYS_utimes, "utimes", kPath, 0}}},
      {"chdir", EACCES, {{SYS_chdir, "chdir", kPath, 0}, {SYS_fchdir, "fchdir", kDescriptor, 0}}},
  };
}

std::vector<CallGroup> processGroups() {
  return {
      {"fork",
       EAGAIN,
       {{SYS_fork, "fork"}, {SYS_vfork, "vfork"}, {SYS_clone, "clone"}, {SYS_clone3, "clone3"}}},
      {"exec", ENOMEM, {{SYS_execve, "execve", kPath, 0}, {SYS_execveat, "execveat", kPath, 1}}},
      {"wait",
       EINTR,
       {{SYS_wait4, "wait4"}, {SYS_waitid, "waitid"}, {SYS_poll, "poll"}, {SYS_ppoll, "ppoll"}}},
      {"pipe", EMFILE, {{SYS_pipe, "pipe"}, {SYS_pipe2, "pipe2"}, {SYS_socketpair, "socketpair"}}},
      {"dup",
       EMFILE,
       {{SYS_dup, "dup", kDescriptor, 0},
        {SYS_dup2, "dup2", kDescriptor, 0},
        {SYS_dup3, "dup3", kDescriptor, 0},
        {SYS_fcntl, "fcntl", kDescriptor, 0, duplicates}}},
      {"socket",
       EACCES,
       {{SYS_socket, "socket"},
        {SYS_bind, "bind"},
        {SYS_connect, "connect"},
        {SYS_sendto, "sendto"}}},
      {"memory",
       ENOMEM,
       {{SYS_brk, "brk", kNone, 0, movesEnd},
        {SYS_mmap, "mmap", kNone, 0, mapsMemory},
        {SYS_mremap, "mremap"}}},
      {"loading", EIO, {{SYS_read, "read", kDescriptor, 0}}, true},
  };
}

std::vector<CallGroup> allGroups() {
  std::vector<CallGroup> groups = fileGroups();
  for (const auto& more : {folderGroups(), processGroups()}) {
    groups.insert(groups.end(), more.begin(), more.end());
  }
  for (CallGroup& group : groups) {
    std::erase_if(group.calls, [](const Call& call) { return call.number < 0; });
  }
  return groups;
}

}  // namespace

const std::vector<CallGroup>& callGroups() {
  static const std::vector<CallGroup> groups = allGroups();
  return groups;
}

const CallGroup* findGroup(std::string_view name) {
  const auto& groups = callGroups();
  const auto found = std::find_if(groups.begin(), groups.end(),
                                  [&](const CallGroup& group) { return group.name == name; });
  return found == groups.end() ? nullptr : &*found;
}

}  // namespace tovrek::faults
