// Hashing files without holding them in memory.
#pragma once

#include <string>

#include "host/ErrorText.h"

namespace tovrek::signing {

struct FileHashes {
  std::string sha1;
  std::string sha256;
};

// Reads the file once for both hashes; `sha1` stays empty when it is not wanted.
bool hashFile(const std::string& path, bool withSha1, FileHashes* hashes, ErrorText* error);

}  // namespace tovrek::signing
