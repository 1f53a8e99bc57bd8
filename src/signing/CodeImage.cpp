#include "signing/CodeImage.h"

#include <algorithm>
#include <atomic>

#include "host/MappedFile.h"
#include "host/parallel.h"

namespace tovrek::signing {
namespace {

constexpr std::string_view kZeros("\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);
// Bytes that one thread hashes and then hands on: they fit into its cache.
constexpr uint64_t kPortion = uint64_t{1} << 18;
// Portions that one thread takes at a time: some milliseconds of work.
constexpr size_t kPortionsPerPart = 16;
// Pages to go by where no hashes are asked for.
constexpr uint8_t kCopiedPageLog2 = 18;

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

std::string_view CodeImage::mapped(uint64_t offset, uint64_t size) const {
  return offset < original_.size() ? original_.substr(offset, size) : std::string_view();
}

bool CodeImage::sendTo(const Sink& sink, uint64_t offset, uint64_t size) const {
  return forEachRun(offset, size, [&](std::string_view run) {
    if (!sink(offset, run)) return false;
    offset += run.size();
    return true;
  });
}

bool CodeImage::copyTo(const Sink& sink) const {
  return pageHashes(kCopiedPageLog2, {}, sink).has_value();
}

// A worker takes the image's parts in small portions: hashed, then handed on from the cache.
std::optional<std::vector<std::string>> CodeImage::pageHashes(uint8_t pageSizeLog2,
                                                              std::span<const HashKind> kinds,
                                                              const Sink& sink) const {
  const uint64_t pageSize = pageSizeLog2 == 0 ? limit_ : uint64_t{1} << pageSizeLog2;
  const size_t pages = limit_ == 0 ? 0 : (limit_ - 1) / pageSize + 1;
  const size_t pagesPerPortion = std::max<uint64_t>(1, kPortion / std::max<uint64_t>(1, pageSize));
  std::vector<std::string> hashes;
  for (const HashKind& kind : kinds) hashes.emplace_back(pages * kind.size, '\0');
  std::atomic<bool> good{true};
  forEachPart(pages, pagesPerPortion * kPortionsPerPart, [&](size_t begin, size_t end) {
    const std::string_view part = mapped(begin * pageSize, (end - begin) * pageSize);
    fetchPages(part);
    std::vector<Digest> digests;
    for (const HashKind& kind : kinds) digests.emplace_back(kind.algorithm);
    for (size_t portion = begin; good && portion < end; portion += pagesPerPortion) {
      const size_t portionEnd = std::min(end, portion + pagesPerPortion);
      for (size_t page = portion; !kinds.empty() && page < portionEnd; ++page) {
        forEachRun(page * pageSize, pageSize, [&](std::string_view run) {
          for (Digest& digest : digests) digest.update(run);
          return true;
        });
        for (size_t i = 0; i < kinds.size(); ++i) {
          digests[i].finish().copy(hashes[i].data() + page * kinds[i].size, kinds[i].size);
        }
      }
      if (sink && !sendTo(sink, portion * pageSize, (portionEnd - portion) * pageSize)) {
        good = false;
      }
    }
    releasePages(part);
  });
  if (!good) return std::nullopt;
  return hashes;
}

}  // namespace tovrek::signing
