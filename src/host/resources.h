// What the machine has to give to programs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace tovrek {

// Processors that this process may use, by its own limits and those of its container; at least 1.
size_t processorCount();
// Bytes of memory that programs may take without others being pushed out, likewise; none where the
// system does not tell.
std::optional<uint64_t> availableMemory();
// Whether what is written below the folder stays in memory.
bool isInMemory(const std::string& folder);

}  // namespace tovrek
