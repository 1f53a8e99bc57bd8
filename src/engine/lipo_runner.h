// Splitting and joining universal executables with the `lipo` program.
#pragma once

#include <array>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// The architectures of iOS devices, in the order in which slices are handled.
inline constexpr std::array<std::string_view, 3> kDeviceArchs = {"armv7", "armv7s", "arm64"};
// One flag for each of kDeviceArchs: whether the executable has such a slice.
using ArchPresence = std::array<bool, kDeviceArchs.size()>;

// All that run `lipo` throw (macho::EngineText) where it could not be started or was ended by a
// signal, and where it answers for one architecture but complains about another.

// Where the slice lies between split and join: beside the executable.
std::string sliceFileName(const std::string& path, std::string_view arch);

// Whether `lipo` does not call the file thin. True also for what it cannot read.
bool IsFatBinary(const std::string& path);

// Writes the slice of each device architecture to its own file and tells which there are. False
// as soon as one cannot be written; why is in the slot, and an error in the log.
bool ExtractArchsFromFatBinary(const std::string& path, bool isFat, ArchPresence* present,
                               const WrapperLogger& logger, ErrorText* error);

// Replaces the executable by a universal file of the slices and removes them. True when `lipo`
// made it, or complained about an unknown architecture flag (the slices stay then).
// Why it was not made is in the slot, and an error in the log.
bool CreateFatBinaryFromArchs(const std::string& path, const ArchPresence& present,
                              const WrapperLogger& logger, ErrorText* error);

}  // namespace tovrek
