#include "host/disk_space.h"

#include <filesystem>

namespace tovrek {

std::optional<uint64_t> freeSpace(const std::string& path) {
  std::error_code failure;
  const auto space = std::filesystem::space(path, failure);
  return failure ? std::nullopt : std::optional<uint64_t>(space.available);
}

}  // namespace tovrek
