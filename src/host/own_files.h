// Whose files are whose.
#pragma once

#include <string>

namespace tovrek {

// A regular file that belongs to this user; links are followed.
bool isOwnRegularFile(const std::string& path);

}  // namespace tovrek
