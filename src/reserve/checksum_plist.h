// A checksum in a file of its own.
#pragma once

#include <string>

namespace tovrek {

// Writes a property list of one key.
bool GenerateChecksumPlistFile(const std::string& checksum, const std::string& key,
                               const std::string& path);

}  // namespace tovrek
