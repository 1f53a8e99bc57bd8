// Files in memory, with the engine's codes for why one cannot be.
#pragma once

#include <string>

#include "host/EditedFile.h"
#include "host/MappedFile.h"

namespace tovrek {

// An image to read. Throws MachORebuildErrors, for an empty file too.
MappedFile openForReading(const std::string& path);

// Opens an image to be changed in place. Throws MachORebuildErrors.
void openForEditing(EditedFile& file, const std::string& path);

}  // namespace tovrek
