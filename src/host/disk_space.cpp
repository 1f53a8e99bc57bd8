#include "host/disk_space.h"

#include <filesystem>

namespace tovrek {

std::optional<uint64_t> freeSpace(const std::string& path) {
  std::error_code failure;
  const auto space = std::filesystem::space(path, failure);
  return failure ? std::nullopt : std::optional<uint64_t>(space.available);
}

uint64_t bytesBelow(const std::string& folder) {
  uint64_t bytes = 0;
  std::error_code failure;
  const auto options = std::filesystem::directory_options::skip_permission_denied;
  std::filesystem::recursive_directory_iterator entry(folder, options, failure), end;
  for (; !failure && entry != end; entry.increment(failure)) {
    std::error_code unknown;
    if (entry->is_symlink(unknown) || !entry->is_regular_file(unknown)) continue;
    const auto size = entry->file_size(unknown);
    if (!unknown) bytes += size;
  }
  return bytes;
}

}  // namespace tovrek
