#include "signing/FileHasher.h"

#include <span>

#include "host/StdioFile.h"

namespace tovrek::signing {
namespace {

constexpr size_t kPieceSize = size_t{1} << 18;

}  // namespace

FileHasher::FileHasher(ProgressReport* progress) : progress_(progress), piece_(kPieceSize) {}

bool FileHasher::hash(const std::string& path, bool withSha1, FileHashes* hashes,
                      ErrorText* error) {
  const auto use = [&](size_t size) {
    const std::string_view piece(piece_.data(), size);
    if (withSha1) sha1_.update(piece);
    sha256_.update(piece);
    if (progress_ != nullptr) progress_->add(size);
  };
  const bool read = readInPieces(
      path, [&] { return std::span(piece_); }, use, error);
  if (withSha1) hashes->sha1 = sha1_.finish();
  hashes->sha256 = sha256_.finish();
  return read;
}

}  // namespace tovrek::signing
