// What the fuzz program of the archive reader runs; the ordinary tests use it too.
#pragma once

#include <string>
#include <vector>

namespace tovrek::test {

// Reads the archive as unzip does, without writing anything: the contents of all entries that are
// sound, none when the archive is refused. Ends the program when a name would lead out of the
// destination or sound contents are not as long as the entry says.
std::vector<std::string> readArchive(const std::string& archive);

}  // namespace tovrek::test
