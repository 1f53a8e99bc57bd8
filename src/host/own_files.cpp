#include "host/own_files.h"

#include <sys/stat.h>
#include <unistd.h>

namespace tovrek {

bool isOwnRegularFile(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid();
}

}  // namespace tovrek
