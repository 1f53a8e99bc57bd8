// What macOS tells of a file system, as far as this project asks.
#pragma once

#include <stdint.h>

struct statfs {
  uint32_t f_bsize;
  uint64_t f_blocks;
  char f_fstypename[16];
};

extern "C" int statfs(const char* path, struct statfs* info);
