// Packed bytes that need not be made again.
#pragma once

#include <map>
#include <string>
#include <unordered_set>
#include <utility>

#include "archive/ArchiveReader.h"
#include "archive/deflate.h"

namespace tovrek::archive {

// An archive whose deflated entries may be taken for files of the same contents.
//
// Nothing about a file's history is believed: not its name, inode, size or times, and no checksum.
// Times do not show every change: those of Linux move in steps of some milliseconds, a write
// through a mapping on tmpfs leaves them alone, and anybody can set them back. A CRC-32 can be met
// on purpose by changing four bytes. So a candidate's packed bytes are copied, unpacked and
// compared with the file's present contents, byte by byte; only then are those same copied bytes
// used. That is as sure as packing anew, holds for moved and copied files as well, and costs about
// a fiftieth of packing. It also means that there is no record of what was unpacked to be kept,
// protected and removed: a wrong or changed archive gives no match, never a wrong result.
class PackedSource {
 public:
  enum class Known {
    kNothing,
    kNotWorthPacking,  // whoever packed it gained nothing to speak of: a hint, right or wrong
    kPacked,
  };

  // False, leaving nothing to take, for what is no sound archive and for an archive that is packed
  // worse than archives usually are.
  bool open(const std::string& path);

  // Whether some entry unpacks to this many bytes, which is worth a closer look.
  bool mayHave(uint64_t size) const { return sizes_.contains(size); }
  // The first entry for contents of this size and CRC, which may be others all the same; null for
  // none.
  const Entry* find(uint64_t size, uint32_t crc) const;
  Bytes packed(const Entry& entry) const { return reader_.packed(entry); }
  // Of all entries together.
  uint64_t packedSize() const { return packedSize_; }
  // What the archive tells about a file of these contents; for kPacked `packed` gets the deflated
  // form. Safe to call from several threads, each with an inflater and a room to unpack in.
  Known lookUp(Bytes contents, uint32_t crc, Inflater* inflater, Buffer* room,
               Buffer* packed) const;

 private:
  bool isPackedWell() const;

  ArchiveReader reader_;
  uint64_t packedSize_ = 0;
  std::unordered_set<uint64_t> sizes_;
  // By size and CRC the first entry of the archive.
  std::map<std::pair<uint64_t, uint32_t>, const Entry*> entries_;
};

}  // namespace tovrek::archive
