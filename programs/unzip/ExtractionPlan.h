// What an extraction will do, decided before anything is written.
#pragma once

#include <string>
#include <vector>

#include "archive/ArchiveReader.h"
#include "host/FolderCursor.h"
#include "host/Streams.h"
#include "programs/unzip/UnzipOptions.h"

namespace tovrek::unzip {

struct PlannedItem {
  const archive::Entry* entry = nullptr;
  std::string path{};    // below the destination, without "/" at either end
  bool replace = false;  // something stands there and is to go
};

struct ExtractionPlan {
  std::vector<PlannedItem> folders{};
  std::vector<PlannedItem> files{};
  std::vector<PlannedItem> links{};  // made last, so that nothing is written through them
  bool endedByInput = false;         // asked about an item and got no answer
};

// The parts of "a/b/c": "a/b" and "c".
std::string folderOf(const std::string& path);
std::string nameOf(const std::string& path);

// The path below the destination that an entry's name stands for. False for names that would
// leave it.
bool destinationPath(const std::string& name, std::string* path);

// Sorts the chosen entries into the plan and asks what to do about items that stand in the way.
// False, with a text, for an archive that must not be unpacked.
bool planExtraction(const std::vector<const archive::Entry*>& entries, const UnzipOptions& options,
                    const Streams& streams, FolderCursor* destination, ExtractionPlan* plan,
                    ErrorText* error);

}  // namespace tovrek::unzip
