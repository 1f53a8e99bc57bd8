#include "programs/zip/large_files.h"

#include <algorithm>

#include "archive/deflate.h"
#include "host/MappedFile.h"
#include "host/bytes.h"
#include "host/parallel.h"

namespace tovrek::zip {
namespace {

using archive::Bytes;
using archive::PieceMethod;
using Way = LargeFile::Way;

// Up to these sizes files are compared, and packed, as a whole.
constexpr uint64_t kLargestComparedWhole = 4 << 20;
constexpr uint64_t kLargestPackedWhole = 16 << 20;
constexpr int kQuickLevel = 2;

bool isLarge(const SourceItem& item) {
  return item.status.kind == ItemKind::kFile && item.status.size > kLargestRead;
}

// The CRC, read in steps whose pages are given back.
uint32_t crcOfMapped(Bytes contents) {
  constexpr size_t kStep = 4 << 20;
  uint32_t crc = 0;
  for (size_t at = 0; at < contents.size(); at += kStep) {
    const Bytes step = contents.subspan(at, std::min(kStep, contents.size() - at));
    crc = archive::crcOf(step, crc);
    releasePages(asText(step));
  }
  return crc;
}

// Without the method, which depends on the others. A file that cannot be read is told of by whoever
// packs it.
LargeFile judge(const SourceItem& item, const archive::PackedSource* source, int level) {
  LargeFile plan;
  plan.way = item.standsFor == nullptr ? Way::kStore : Way::kLeft;
  if (plan.way == Way::kLeft) return plan;
  MappedFile file;
  if (level == 0) return plan;
  if (!file.open(item.path)) return LargeFile();
  const Bytes contents = file.bytes();
  if (source != nullptr && level <= kUsualLevel && source->mayHave(contents.size())) {
    plan.known = source->find(contents.size(), crcOfMapped(contents));
  }
  if (plan.known != nullptr) {
    if (!archive::isWorthPacking(plan.known->size, plan.known->compressedSize)) return plan;
    plan.way = contents.size() <= kLargestComparedWhole ? Way::kWhole : Way::kReuse;
    return plan;
  }
  const auto estimate = archive::estimatedPackedSize(contents);
  if (!estimate) return plan;
  plan.way = Way::kPieces;
  plan.newBytes = *estimate;
  return plan;
}

// A package may grow by a fiftieth against the usual level, new code alone a little more.
PieceMethods methodsFor(double newShare, int level) {
  constexpr double kMostGrowth = 0.02;
  constexpr double kMostGrowthOfCode = 0.045;
  constexpr double kGrowthByQuick = 0.12;
  constexpr double kGrowthByFast = 0.09;
  constexpr double kGrowthByThorough = 0.03;
  if (level <= kQuickLevel) return {.quick = true};
  if (level > kUsualLevel) return {};
  const double growth = std::max(kMostGrowthOfCode, kMostGrowth / std::max(newShare, 1e-9));
  if (growth >= kGrowthByQuick) return {.quick = true};
  const double share = (growth - kGrowthByThorough) / (kGrowthByFast - kGrowthByThorough);
  return {.fastShare = std::min(share, 1.0)};
}

}  // namespace

PieceMethod PieceMethods::of(uint64_t piece) const {
  if (quick) return PieceMethod::kQuick;
  const auto fastOnes = [this](uint64_t pieces) {
    return static_cast<uint64_t>(static_cast<double>(pieces) * fastShare);
  };
  return fastOnes(piece + 1) > fastOnes(piece) ? PieceMethod::kFast : PieceMethod::kThorough;
}

std::vector<LargeFile> planLargeFiles(const std::vector<const SourceItem*>& items,
                                      const archive::PackedSource* source, int level) {
  std::vector<LargeFile> plans(items.size());
  std::vector<size_t> large;
  for (size_t i = 0; i < items.size(); ++i) {
    if (items[i] != nullptr && isLarge(*items[i])) large.push_back(i);
  }
  forEachPart(large.size(), 1, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) {
      plans[large[i]] = judge(*items[large[i]], source, level);
    }
  });
  uint64_t newBytes = 0;
  for (const LargeFile& plan : plans) newBytes += plan.newBytes;
  // What the source holds is about what the package will hold.
  const uint64_t total =
      std::max({newBytes, source == nullptr ? 0 : source->packedSize(), uint64_t{1}});
  const PieceMethods methods =
      methodsFor(static_cast<double>(newBytes) / static_cast<double>(total), level);
  // Where most would be packed thoroughly, the usual level is better, but needs a file whole.
  const bool isSlow = !methods.quick && methods.fastShare < 0.5;
  for (const size_t i : large) {
    plans[i].methods = methods;
    if (plans[i].way == Way::kPieces && isSlow && items[i]->status.size <= kLargestPackedWhole) {
      plans[i].way = Way::kWhole;
    }
  }
  return plans;
}

}  // namespace tovrek::zip
