#include "signing/FileHasher.h"

#include <vector>

#include "formats/Digest.h"
#include "host/StdioFile.h"

namespace tovrek::signing {
namespace {

constexpr size_t kPieceSize = size_t{1} << 18;

// What one thread needs again for each file.
struct Tools {
  Digest sha1{DigestAlgorithm::kSha1};
  Digest sha256{DigestAlgorithm::kSha256};
  std::vector<char> piece = std::vector<char>(kPieceSize);
};

}  // namespace

bool hashFile(const std::string& path, bool withSha1, FileHashes* hashes, ErrorText* error) {
  thread_local Tools tools;
  const auto use = [&](size_t size) {
    const std::string_view piece(tools.piece.data(), size);
    if (withSha1) tools.sha1.update(piece);
    tools.sha256.update(piece);
  };
  const bool read = readInPieces(
      path, [] { return std::span(tools.piece); }, use, error);
  if (withSha1) hashes->sha1 = tools.sha1.finish();
  hashes->sha256 = tools.sha256.finish();
  return read;
}

}  // namespace tovrek::signing
