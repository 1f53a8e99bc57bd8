// Hashes of the names in a string pool.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "macho/ByteView.h"

namespace tovrek::macho {

// One hash of 61 bits for the name at each of these places, all inside the pool; a name ends at a
// NUL or at the end of the pool. Equal names have equal hashes. Different ones collide with a
// chance of at most their length in 2^61 whatever they are, as the hash is the value of the name
// as a polynomial, modulo a prime, at a point drawn at random by the process.
//
// Takes time linear in the pool and the number of names, also when many of them share their ends.
std::vector<uint64_t> hashNames(ByteView pool, std::span<const uint32_t> starts);

}  // namespace tovrek::macho
