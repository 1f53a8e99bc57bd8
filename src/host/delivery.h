// Files that outlast the run that makes them.
#pragma once

#include <string>

#include "host/ErrorText.h"

namespace tovrek {

// Whether the file is needed where it was made after it has been delivered.
enum class Source { kKept, kSpent };

// Puts the file at `to`, in place of a file that stands there: the new one is made beside it, has
// reached the disk before it takes the name, and the name has before this returns. Until then the
// old one stays, whatever happens. A folder, or a link to nothing, is not replaced. Within a
// scratch folder (see scratch.h) nothing is waited for.
bool deliverFile(const std::string& from, const std::string& to, Source source,
                 ErrorText* error = nullptr);

// Waits until the folder, and all files and folders in it, have reached the disk. False with the
// path and the system's reason. Links are left alone, and nothing in a scratch folder is waited
// for.
bool flushTree(const std::string& folder, ErrorText* error = nullptr);

// deliverFile() for a file on the same file system that is as it is to be: it takes the name
// itself, so that even a run that is killed leaves nothing beside it.
bool renameFileInto(const std::string& from, const std::string& to, ErrorText* error = nullptr);

}  // namespace tovrek
