// Writing the container of a zip archive.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "archive/Entry.h"

namespace tovrek::archive {

// Writes one archive to an open file from its beginning, entry by entry. Sizes always stand in the
// entries' headers, so that readers need no data descriptors; Zip64 fields appear where a number
// asks for them. A false answer leaves the reason in errno and ends the archive.
class ArchiveWriter {
 public:
  explicit ArchiveWriter(int fd) : fd_(fd) {}

  // An entry whose CRC and sizes are known. `localExtra` are the extra fields of its header.
  bool add(Entry entry, std::string_view localExtra, Bytes packed);
  // The contents of an open file, stored. Takes its CRC and size from the bytes that were copied
  // and answers them in `entry`, whose `size` is the expected one before.
  bool addStored(Entry* entry, std::string_view localExtra, int from);
  // The directory and the end records.
  bool finish(std::string_view comment);

 private:
  bool write(std::string_view bytes);
  bool flush();
  bool copyStored(Entry* entry, int from);

  int fd_;
  std::string pending_;  // not yet written
  uint64_t offset_ = 0;  // in the archive, behind `pending_`
  std::vector<Entry> entries_;
};

// The extra field for the exact time of change; empty for times that it cannot hold.
std::string timeExtra(time_t modified);
// `extra` without its Zip64 field.
std::string withoutZip64(std::string_view extra);

}  // namespace tovrek::archive
