#include "companions/signing/CodeImage.h"

#include <algorithm>

#include "companions/signing/parallel.h"

namespace tovrek::signing {
namespace {

constexpr std::string_view kZeros("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);
// Pages that one thread hashes at a time: some milliseconds of work.
constexpr size_t kPagesPerPart = 1024;

}  // namespace

bool CodeImage::forEachRun(uint64_t offset, uint64_t size,
                           const std::function<bool(std::string_view)>& take) const {
  const uint64_t end = std::min(offset + size, limit_);
  while (offset < end) {
    std::string_view run;
    if (offset < head_.size()) {
      run = std::string_view(head_).substr(offset);
    } else if (offset < original_.size()) {
      run = original_.substr(offset);
    } else {
      run = kZeros;
    }
    run = run.substr(0, end - offset);
    if (!take(run)) return false;
    offset += run.size();
  }
  return true;
}

std::vector<std::string> CodeImage::pageHashes(uint8_t pageSizeLog2,
                                               std::span<const HashKind> kinds) const {
  const uint64_t pageSize = pageSizeLog2 == 0 ? limit_ : uint64_t{1} << pageSizeLog2;
  const size_t pages = limit_ == 0 ? 0 : (limit_ - 1) / pageSize + 1;
  std::vector<std::string> hashes;
  for (const HashKind& kind : kinds) hashes.emplace_back(pages * kind.size, '\0');
  forEachPart(pages, kPagesPerPart, [&](size_t begin, size_t end) {
    std::vector<Digest> digests;
    for (const HashKind& kind : kinds) digests.emplace_back(kind.algorithm);
    for (size_t page = begin; page < end; ++page) {
      forEachRun(page * pageSize, pageSize, [&](std::string_view run) {
        for (Digest& digest : digests) digest.update(run);
        return true;
      });
      for (size_t i = 0; i < kinds.size(); ++i) {
        digests[i].finish().copy(hashes[i].data() + page * kinds[i].size, kinds[i].size);
      }
    }
  });
  return hashes;
}

}  // namespace tovrek::signing
