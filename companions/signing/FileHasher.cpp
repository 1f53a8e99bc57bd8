#include "companions/signing/FileHasher.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "formats/Digest.h"

namespace tovrek::signing {
namespace {

constexpr size_t kPieceSize = size_t{1} << 18;

struct FileCloser {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

// What one thread needs again for each file.
struct Tools {
  Digest sha1{DigestAlgorithm::kSha1};
  Digest sha256{DigestAlgorithm::kSha256};
  std::vector<char> piece = std::vector<char>(kPieceSize);
};

}  // namespace

bool hashFile(const std::string& path, bool withSha1, FileHashes* hashes, ErrorText* error) {
  thread_local Tools tools;
  const std::unique_ptr<std::FILE, FileCloser> file(std::fopen(path.c_str(), "rb"));
  if (!file) return fail(error, std::strerror(errno));
  std::setvbuf(file.get(), nullptr, _IONBF, 0);
  for (;;) {
    const size_t got = std::fread(tools.piece.data(), 1, tools.piece.size(), file.get());
    const std::string_view piece(tools.piece.data(), got);
    if (withSha1) tools.sha1.update(piece);
    tools.sha256.update(piece);
    if (got < tools.piece.size()) break;
  }
  const bool read = std::ferror(file.get()) == 0;
  if (withSha1) hashes->sha1 = tools.sha1.finish();
  hashes->sha256 = tools.sha256.finish();
  return read || fail(error, std::strerror(errno));
}

}  // namespace tovrek::signing
