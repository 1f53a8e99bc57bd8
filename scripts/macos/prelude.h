// Makes a macOS of a Linux, as far as a compiler can be made to believe it: what both have comes
// from the headers of this machine, what macOS adds is declared, and what Linux adds is gone.
#pragma once

// All of both that anything includes later, so that no header of this machine meets what follows.
#include <bits/stdc++.h>
#include <dirent.h>
#include <fcntl.h>
#include <fmt/chrono.h>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <fnmatch.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <poll.h>
#include <pwd.h>
#include <regex.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/param.h>
#include <sys/random.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <zlib.h>

// What Linux adds. Macros go; a call by its name is refused.
#undef __GLIBC__
#undef __GLIBC_PREREQ
#undef AT_EMPTY_PATH
#undef CLOSE_RANGE_CLOEXEC
#undef MADV_POPULATE_READ
#undef MAP_POPULATE
#undef MSG_NOSIGNAL
#undef O_DIRECT
#undef O_PATH
#undef O_TMPFILE
#undef RENAME_NOREPLACE
#undef SOCK_CLOEXEC
#undef SOCK_NONBLOCK
#pragma GCC poison _Fork accept4 canonicalize_file_name close_range copy_file_range dup3 execvpe
#pragma GCC poison fallocate get_current_dir_name getauxval getrandom mallopt malloc_trim
#pragma GCC poison memfd_create memrchr off64_t pipe2 posix_fallocate ppoll prctl
#pragma GCC poison program_invocation_name renameat2 secure_getenv sendfile sigtimedwait sigwaitinfo
#pragma GCC poison statx strchrnul sync_file_range syscall

// What macOS adds.
#define F_PREALLOCATE 42
#define F_ALLOCATEALL 4
#define F_PEOFPOSMODE 3
#define SO_NOSIGPIPE 0x1022
#define RENAME_EXCL 4
#define st_ctimespec st_ctim

struct fstore_t {
  unsigned fst_flags;
  int fst_posmode;
  off_t fst_offset, fst_length, fst_bytesalloc;
};

extern "C" int renameatx_np(int fromFolder, const char* from, int toFolder, const char* to,
                            unsigned flags);
