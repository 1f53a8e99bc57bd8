#include "programs/zip/PieceEntry.h"

#include <zlib.h>

#include "archive/packed_copy.h"

namespace tovrek::zip {

using archive::Copied;

bool PieceEntry::begin(const SourceItem& item, ErrorText* error) {
  fault_.clear();
  entry_ = describe(item, withExtra_);
  entry_.method = archive::kDeflated;
  const bool begun = writer_.begin(entry_, entry_.extra, error);
  entry_.size = 0;
  return begun;
}

bool PieceEntry::append(archive::Bytes packed, ErrorText* error) {
  entry_.compressedSize += packed.size();
  return writer_.append(packed, error);
}

bool PieceEntry::give(std::string fault, ErrorText* error) {
  fault_ = std::move(fault);
  return writer_.abandon(error);
}

bool PieceEntry::add(const SourceItem& item, const LargeFile& plan, uint64_t piece,
                     const PackedItem& packed, ErrorText* error) {
  if (piece == 0 && !begin(item, error)) return false;
  if (!fault_.empty()) return true;  // of a piece before
  if (!packed.fault.empty()) return give(packed.fault, error);
  entry_.crc = static_cast<uint32_t>(
      ::crc32_combine(entry_.crc, packed.entry.crc, static_cast<z_off_t>(packed.entry.size)));
  entry_.size += packed.entry.size;
  if (!append(packed.packed.bytes(), error)) return false;
  const bool isLast = piece + 1 == plan.pieceCount(item.status.size);
  if (isLast) entry_.flags |= levelFlags(level_);
  return !isLast || writer_.end(entry_, entry_.extra, error);
}

bool PieceEntry::addKnown(const SourceItem& item, const LargeFile& plan, Packer* packer,
                          ErrorText* error) {
  if (!begin(item, error)) return false;
  InputFile file;
  ErrorText reason;
  bool written = true;
  Copied copied = Copied::kFailed;
  if (openItemFile(item, &file, &reason)) {
    copied = archive::copyWhileSame(
        source_->packed(*plan.known), file,
        [&](archive::Bytes piece) { return written = append(piece, error); }, &reason);
  }
  if (!written) return false;
  if (copied == Copied::kSame) {
    entry_.size = file.status().size;
    entry_.crc = plan.known->crc;
    return writer_.end(entry_, entry_.extra, error);
  }
  if (!give(reason.text(), error) || copied == Copied::kFailed) return !error->isSet();
  LargeFile anew = plan;
  anew.way = LargeFile::Way::kPieces;
  for (uint64_t piece = 0; piece < anew.pieceCount(item.status.size); ++piece) {
    if (!add(item, anew, piece, packPiece(item, anew.methods.of(piece), piece, packer), error))
      return false;
  }
  return true;
}

}  // namespace tovrek::zip
