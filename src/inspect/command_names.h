// The published names of load commands.
#pragma once

#include <cstdint>
#include <string>

namespace tovrek::inspect {

// "LC_UUID"; the number in words for one without a published name.
std::string commandName(uint32_t cmd);

}  // namespace tovrek::inspect
