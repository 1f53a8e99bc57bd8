#include "programs/unzip/unpack_entry.h"

#include <fmt/format.h>

namespace tovrek::unzip {

using archive::Bytes;

std::string contentsFault(const archive::Entry& entry, Bytes contents) {
  const uint32_t crc = archive::crcOf(contents);
  if (crc == entry.crc) return {};
  return fmt::format("bad CRC {:08x}  (should be {:08x})", crc, entry.crc);
}

bool unpackEntry(const archive::ArchiveReader& reader, const archive::Entry& entry,
                 archive::Inflater* inflater, archive::Buffer* room, Bytes* contents,
                 std::string* fault) {
  *contents = reader.packed(entry);
  if (entry.method == archive::kDeflated) {
    const auto target = room->atLeast(entry.size);
    if (target.size() < entry.size) {
      *fault = "not enough memory";
      return false;
    }
    if (!inflater->inflate(*contents, target)) {
      *fault = kBadData;
      return false;
    }
    *contents = target;
  }
  *fault = contentsFault(entry, *contents);
  return fault->empty();
}

}  // namespace tovrek::unzip
