// Names of the numbers in Mach-O files, as the verbose listings show them.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace tovrek::otool {

struct NamedNumber {
  uint32_t number;
  std::string_view name;
};

// The name, or empty when the number has none.
std::string_view nameIn(std::span<const NamedNumber> names, uint32_t number);

// The names of the bits that are set, each with a blank before it; bits without a name are left
// in `rest`.
std::string namesOfBits(std::span<const NamedNumber> names, uint32_t bits, uint32_t* rest);

extern const std::span<const NamedNumber> kFileTypes, kHeaderFlags, kCpuTypes, kSegmentFlags,
    kSectionTypes, kSectionAttributes, kPlatforms, kTools;

// Subtypes carry other names in the header ("V7") than in the table of a universal file
// ("CPU_SUBTYPE_ARM_V7"), where cpu types are "CPU_TYPE_ARM". Empty for a number without one.
std::string_view subtypeName(uint32_t cputype, uint32_t subtype);
std::string longCpuTypeName(uint32_t cputype);
std::string longSubtypeName(uint32_t cputype, uint32_t subtype);

}  // namespace tovrek::otool
