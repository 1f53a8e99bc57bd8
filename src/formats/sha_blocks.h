// The step of both SHA-1 and SHA-256 on processors with instructions for them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tovrek {

// Whether this processor can do what follows.
bool hasShaInstructions();

// Takes `count` blocks of 64 bytes into both states.
void addShaBlocks(uint32_t* sha1, uint32_t* sha256, const char* blocks, size_t count);

}  // namespace tovrek
