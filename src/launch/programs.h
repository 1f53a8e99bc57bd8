// How one companion finds and becomes another program. A companion often has the name of the
// program that it calls and stands in front of it in PATH, so a plain search would find itself.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/Streams.h"

namespace tovrek::launch {

// The companion NAME: in the host root, else beside this program; none when there is none.
std::optional<std::string> findCompanion(const std::string& name);

// The program NAME in PATH, then in /usr/bin and /bin. Companions, those of other installations
// too, are skipped.
std::optional<std::string> findHostProgram(const std::string& name);

// Replaces this process by the program, called with `arguments` after its name. Returns only when
// that fails, with the reason printed and the status to exit with.
int becomeProgram(const std::string& path, const std::vector<std::string>& arguments,
                  const Streams& streams);

}  // namespace tovrek::launch
