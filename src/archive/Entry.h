// One item of an archive.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

#include "archive/zip_records.h"

namespace tovrek::archive {

struct Entry {
  std::string name{};  // as stored, unless a reader was asked to decode it; folders end with "/"
  uint16_t storedNameLength = 0;
  uint16_t madeBy = 0;
  uint16_t flags = 0;
  uint16_t method = kStored;
  uint16_t dosTime = 0, dosDate = 0;
  uint32_t crc = 0;
  uint64_t compressedSize = 0, size = 0;
  uint32_t attributes = 0;
  uint64_t headerOffset = 0;
  uint64_t dataOffset = 0;  // where the packed bytes begin
  std::string extra{};      // of the central directory
  std::string comment{};

  bool isFolder() const { return name.ends_with('/'); }
  bool isEncrypted() const {
    return (flags & (kFlagEncrypted | kFlagStrongEncryption | kFlagMaskedHeaders)) != 0;
  }
  // Whether a Unix-like system made the entry, which keeps names as bytes.
  bool isFromUnix() const;
  // Type and permission bits when a Unix-like system made the entry, else 0.
  uint32_t unixMode() const;
  bool isLink() const { return (unixMode() & kUnixTypeMask) == kUnixLink; }
  // The exact time of change where the entry has it, else the DOS time in local time.
  time_t modified() const;
};

// Puts a time into the DOS fields, rounded up to their two seconds; times outside 1980 to 2107
// become the nearest end.
void setDosTime(Entry* entry, time_t time);

}  // namespace tovrek::archive
