// Hashing files without holding them in memory.
#pragma once

#include <string>
#include <vector>

#include "formats/Digest.h"
#include "host/ErrorText.h"
#include "host/progress_report.h"

namespace tovrek::signing {

struct FileHashes {
  std::string sha1;
  std::string sha256;
};

// Keeps from file to file what is costly to make. For one thread.
class FileHasher {
 public:
  // `progress` is told of what is read; it may be null.
  explicit FileHasher(ProgressReport* progress = nullptr);

  // Reads the file once for both hashes; `sha1` stays empty when it is not wanted.
  bool hash(const std::string& path, bool withSha1, FileHashes* hashes, ErrorText* error);

 private:
  ProgressReport* progress_;
  Digest sha1_{DigestAlgorithm::kSha1};
  Digest sha256_{DigestAlgorithm::kSha256};
  std::vector<char> piece_;
};

}  // namespace tovrek::signing
