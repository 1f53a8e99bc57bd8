#include "programs/unzip/unpack_entry.h"

#include <bzlib.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tovrek::unzip {

using archive::Bytes;

namespace {

// Lengths are given in pieces, since the library counts in 32 bits. The stream must end with the
// last byte on both sides.
bool bunzip(Bytes packed, std::span<std::byte> target) {
  constexpr size_t kPiece = size_t{1} << 30;
  bz_stream stream{};
  if (::BZ2_bzDecompressInit(&stream, 0, 0) != BZ_OK) return false;
  int result = BZ_OK;
  size_t taken = 0;
  size_t given = 0;
  // Room for one more byte than there may be, so that the end of the stream is always reached.
  std::byte excess{};
  while (result == BZ_OK) {
    const Bytes in = packed.subspan(taken, std::min(kPiece, packed.size() - taken));
    const bool full = given == target.size();
    const std::span<std::byte> out =
        full ? std::span(&excess, 1)
             : target.subspan(given, std::min(kPiece, target.size() - given));
    // The library does not write through its input pointer.
    stream.next_in = const_cast<char*>(archive::asText(in).data());
    stream.avail_in = static_cast<unsigned>(in.size());
    stream.next_out = static_cast<char*>(static_cast<void*>(out.data()));
    stream.avail_out = static_cast<unsigned>(out.size());
    result = ::BZ2_bzDecompress(&stream);
    const size_t took = in.size() - stream.avail_in;
    const size_t gave = out.size() - stream.avail_out;
    if (full && gave != 0) result = BZ_DATA_ERROR;
    if (result == BZ_OK && took == 0 && gave == 0) result = BZ_UNEXPECTED_EOF;
    taken += took;
    given += full ? 0 : gave;
  }
  ::BZ2_bzDecompressEnd(&stream);
  return result == BZ_STREAM_END && taken == packed.size() && given == target.size();
}

}  // namespace

std::string contentsFault(const archive::Entry& entry, Bytes contents) {
  return crcFault(entry, archive::crcByAll(contents));
}

std::string crcFault(const archive::Entry& entry, uint32_t crc) {
  if (crc == entry.crc) return {};
  return fmt::format("bad CRC {:08x}  (should be {:08x})", crc, entry.crc);
}

bool isKnownMethod(uint16_t method) {
  return method == archive::kStored || method == archive::kDeflated || method == archive::kBzip2;
}

bool unpackInto(const archive::ArchiveReader& reader, const archive::Entry& entry,
                archive::Inflater* inflater, std::span<std::byte> target) {
  const Bytes packed = reader.packed(entry);
  if (entry.method == archive::kDeflated) return inflater->inflate(packed, target);
  return bunzip(packed, target);
}

bool unpackEntry(const archive::ArchiveReader& reader, const archive::Entry& entry,
                 archive::Inflater* inflater, archive::Buffer* room, Bytes* contents,
                 std::string* fault) {
  *contents = reader.packed(entry);
  if (entry.method != archive::kStored) {
    const auto target = room->atLeast(entry.size);
    if (target.size() < entry.size) {
      *fault = std::strerror(ENOMEM);
      return false;
    }
    if (!unpackInto(reader, entry, inflater, target)) {
      *fault = kBadData;
      return false;
    }
    *contents = target;
  }
  *fault = contentsFault(entry, *contents);
  return fault->empty();
}

}  // namespace tovrek::unzip
