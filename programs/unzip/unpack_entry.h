// The contents of one entry.
#pragma once

#include <cstdint>
#include <string>

#include "archive/ArchiveReader.h"
#include "archive/deflate.h"

namespace tovrek::unzip {

// Larger entries are never held whole.
inline constexpr uint64_t kLargestInMemory = 8 << 20;

// What is wrong with an entry's contents: empty when they are sound. `contents` has exactly the
// bytes that came out.
std::string contentsFault(const archive::Entry& entry, archive::Bytes contents);
// The same for contents with this CRC.
std::string crcFault(const archive::Entry& entry, uint32_t crc);

inline constexpr char kBadData[] = "invalid compressed data to inflate";

// Whether entries of this method are unpacked here.
bool isKnownMethod(uint16_t method);
// Unpacks a packed entry, which must give exactly as many bytes as `target` has.
bool unpackInto(const archive::ArchiveReader& reader, const archive::Entry& entry,
                archive::Inflater* inflater, std::span<std::byte> target);

// Packed or stored contents in memory: of a stored entry the archive's own bytes, else unpacked
// into `room`, which is made larger when it must. False, with the fault, when they are damaged.
bool unpackEntry(const archive::ArchiveReader& reader, const archive::Entry& entry,
                 archive::Inflater* inflater, archive::Buffer* room, archive::Bytes* contents,
                 std::string* fault);

}  // namespace tovrek::unzip
