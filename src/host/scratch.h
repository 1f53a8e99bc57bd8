// Files that nobody needs after the run that makes them.
#pragma once

#include <string>

namespace tovrek {

// Tells this process, and the children that it starts from now on, that all contents of the folder
// are removed when the run ends ($TOVREK_SCRATCH). Files in it are replaced as carefully as others,
// but are not waited for until they have reached the disk: a power cut ends the run anyway. The
// folder is guarded as well (see ItemPath.h).
void announceScratchFolder(const std::string& folder);

// Whether the file at this absolute path lies in an announced folder.
bool isScratchFile(const std::string& path);

}  // namespace tovrek
