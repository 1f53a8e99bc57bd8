#include "companions/signing/FileHasher.h"

#include <vector>

#include "formats/ShaPair.h"
#include "host/StdioFile.h"

namespace tovrek::signing {
namespace {

constexpr size_t kPieceSize = size_t{1} << 18;

// What one thread needs again for each file.
struct Tools {
  ShaPair both;
  Digest sha256{DigestAlgorithm::kSha256};
  std::vector<char> piece = std::vector<char>(kPieceSize);
};

}  // namespace

bool hashFile(const std::string& path, bool withSha1, FileHashes* hashes, ErrorText* error) {
  thread_local Tools tools;
  const auto use = [&](size_t size) {
    const std::string_view piece(tools.piece.data(), size);
    withSha1 ? tools.both.update(piece) : tools.sha256.update(piece);
  };
  const bool read = readInPieces(
      path, [] { return std::span(tools.piece); }, use, error);
  if (withSha1) {
    auto [sha1, sha256] = tools.both.finish();
    *hashes = {std::move(sha1), std::move(sha256)};
  } else {
    hashes->sha256 = tools.sha256.finish();
  }
  return read;
}

}  // namespace tovrek::signing
