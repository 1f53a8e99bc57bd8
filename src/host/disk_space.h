// Room on disks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tovrek {

// The bytes that this user may still write to the disk of an item; none when that is not known.
std::optional<uint64_t> freeSpace(const std::string& path);

}  // namespace tovrek
