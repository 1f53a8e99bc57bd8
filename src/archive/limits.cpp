#include "archive/limits.h"

#include <fmt/format.h>

#include <algorithm>
#include <string>

namespace tovrek::archive {
namespace {

bool failBeyond(ErrorText* error, const std::string& what, uint64_t limit) {
  return fail(error, fmt::format("it holds {}, beyond the limit of {}", what, limit));
}

}  // namespace

bool isWithin(const Limits& limits, std::span<const Entry* const> entries, ErrorText* error) {
  if (entries.size() > limits.archiveEntries) {
    return failBeyond(error, fmt::format("{} entries", entries.size()), limits.archiveEntries);
  }
  uint64_t unpacked = 0;
  uint64_t packed = 0;
  for (const Entry* entry : entries) {
    const std::string& name = entry->name;
    if (name.size() > limits.archiveNameBytes) {
      return failBeyond(error, fmt::format("a name of {} bytes", name.size()),
                        limits.archiveNameBytes);
    }
    const auto depth = static_cast<size_t>(std::ranges::count(name, '/'));
    if (depth > limits.archiveFolders) {
      return failBeyond(error, fmt::format("a name of {} folders", depth), limits.archiveFolders);
    }
    unpacked += entry->size;
    packed += entry->compressedSize;
  }
  if (unpacked <= limits.archiveFreeBytes || unpacked / limits.archiveGrowth <= packed) return true;
  return failBeyond(error, fmt::format("{} bytes in {} packed ones", unpacked, packed),
                    limits.archiveGrowth * packed);
}

}  // namespace tovrek::archive
