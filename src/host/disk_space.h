// Room on disks.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace tovrek {

// The bytes that this user may still write to the disk of an item; none when that is not known.
std::optional<uint64_t> freeSpace(const std::string& path);

// The bytes of all files below the folder, as far as they can be looked at, without going through
// links. For what people are shown: cheaper than a walk that has to be whole.
uint64_t bytesBelow(const std::string& folder);

}  // namespace tovrek
