// The names that command lines use for architectures.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tovrek::macho {

struct ArchId {
  uint32_t cputype = 0;
  uint32_t cpusubtype = 0;
};

// What Apple's programs say, before the option and the name, of an architecture that they do not
// know. Scripts, and the engine itself, look for these words in their output.
inline constexpr std::string_view kUnknownArchFlag = "unknown architecture specification flag";

// The numbers of "armv7", "arm64" and so on; none for an unknown name.
std::optional<ArchId> archByName(std::string_view name);

// The name of an architecture, capability bits of the subtype ignored; the numbers in words when
// it has none.
std::string archName(uint32_t cputype, uint32_t cpusubtype);

// Whether both mean the same architecture, capability bits ignored.
bool sameArch(ArchId a, ArchId b);

}  // namespace tovrek::macho
