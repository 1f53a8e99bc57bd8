// An entry that is written in pieces.
#pragma once

#include <string>

#include "archive/ArchiveWriter.h"
#include "programs/zip/large_files.h"
#include "programs/zip/packing.h"

namespace tovrek::zip {

// For one large file after the other.
class PieceEntry {
 public:
  // Both must outlive this. `source` may be null.
  PieceEntry(archive::ArchiveWriter* writer, const archive::PackedSource* source, int level,
             bool withExtra)
      : writer_(*writer), source_(source), level_(level), withExtra_(withExtra) {}

  // Takes the pieces of a file in order. False, with the reason, when the archive cannot be
  // written. A file that turns out not to be readable leaves nothing in it; fault() says why.
  bool add(const SourceItem& item, const LargeFile& plan, uint64_t piece, const PackedItem& packed,
           ErrorText* error);
  // The packed bytes that the source has, when they are those of this file, else packs it, which
  // takes a source that was made to lead astray, or changes.
  bool addKnown(const SourceItem& item, const LargeFile& plan, Packer* packer, ErrorText* error);

  const archive::Entry& entry() const { return entry_; }
  const std::string& fault() const { return fault_; }

 private:
  bool begin(const SourceItem& item, ErrorText* error);
  bool append(archive::Bytes packed, ErrorText* error);
  bool give(std::string fault, ErrorText* error);

  archive::ArchiveWriter& writer_;
  const archive::PackedSource* source_;
  const int level_;
  const bool withExtra_;
  archive::Entry entry_;
  std::string fault_;
};

}  // namespace tovrek::zip
