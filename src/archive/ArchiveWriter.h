// Writing the container of a zip archive.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "archive/Entry.h"
#include "host/AtomicFile.h"
#include "host/InputFile.h"

namespace tovrek::archive {

// Writes one archive to a file from its beginning, entry by entry. Sizes always stand in the
// entries' headers, so that readers need no data descriptors; Zip64 fields appear where a number
// asks for them. A false answer, with the reason, ends the archive.
class ArchiveWriter {
 public:
  // The file must outlive this.
  explicit ArchiveWriter(AtomicFile* file) : file_(*file) {}

  // An entry whose CRC and sizes are known. `localExtra` are the extra fields of its header.
  bool add(Entry entry, std::string_view localExtra, Bytes packed, ErrorText* error);
  // The contents of an open file, stored. Takes its CRC and size from the bytes that were copied
  // and answers them in `entry`, whose `size` is the expected one before.
  bool addStored(Entry* entry, std::string_view localExtra, InputFile* from, ErrorText* error);
  // Contents that lie in an open file from `offset` on, stored. Their CRC and size are known.
  bool addPart(Entry entry, std::string_view localExtra, const InputFile& from, uint64_t offset,
               ErrorText* error);
  // An entry that comes in pieces: begin() with its expected size, append() each piece, end() with
  // its numbers (CRC and both sizes). abandon() instead leaves the archive as before begin().
  bool begin(const Entry& entry, std::string_view localExtra, ErrorText* error);
  bool append(Bytes packed, ErrorText* error) { return write(asText(packed), error); }
  bool end(Entry entry, std::string_view localExtra, ErrorText* error);
  bool abandon(ErrorText* error);
  // The directory and the end records.
  bool finish(std::string_view comment, ErrorText* error);

 private:
  bool write(std::string_view bytes, ErrorText* error);
  bool flush(ErrorText* error);
  bool copyStored(Entry* entry, InputFile* from, ErrorText* error);

  AtomicFile& file_;
  std::string pending_;  // not yet written
  uint64_t offset_ = 0;  // in the archive, behind `pending_`
  uint64_t begun_ = 0;   // where the entry that comes in pieces begins
  bool begunAs64_ = false;
  std::vector<Entry> entries_;
};

// The extra field for the exact time of change; empty for times that it cannot hold.
std::string timeExtra(time_t modified);
// `extra` without its Zip64 field.
std::string withoutZip64(std::string_view extra);

}  // namespace tovrek::archive
