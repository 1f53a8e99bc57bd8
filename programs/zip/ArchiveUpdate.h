// Making an archive, or a new version of one.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "archive/ArchiveReader.h"
#include "archive/ArchiveWriter.h"
#include "archive/PackedSource.h"
#include "archive/StandIns.h"
#include "programs/zip/FileList.h"
#include "programs/zip/PieceEntry.h"
#include "programs/zip/ZipOptions.h"
#include "programs/zip/messages.h"
#include "programs/zip/packing.h"

namespace tovrek::zip {

// One run over the archive: entries of the old one that stay are copied as they are, in their
// order and with new contents where an item of that name was given; the other items follow. The
// result is written beside the archive and takes its place when it is complete.
class ArchiveUpdate {
 public:
  // All three may be null.
  ArchiveUpdate(const ZipOptions& options, const Messages& messages,
                const archive::ArchiveReader* old, const archive::PackedSource* source,
                const archive::StandIns* standIns)
      : options_(options), messages_(messages), old_(old), source_(source), standIns_(standIns) {}

  // Packs the items into the archive. Gives the exit status.
  int addItems(const std::vector<SourceItem>& items);
  // Leaves out the old entries that the operands match.
  int removeEntries();

 private:
  struct Step {
    const archive::Entry* kept = nullptr;
    const SourceItem* item = nullptr;
    bool replaces = false;
  };

  struct Job;  // one entry, or a piece of one

  int writeArchive(const std::vector<Step>& steps);
  bool writeEntries(const std::vector<Step>& steps, archive::ArchiveWriter* writer,
                    ErrorText* error);
  std::vector<Job> jobsFor(const std::vector<Step>& steps) const;
  bool writePiece(const Job& job, PackedItem* packed, Packer* packer, PieceEntry* pieces,
                  archive::ArchiveWriter* writer, ErrorText* error);
  bool writeStep(const Step& step, PackedItem* packed, archive::ArchiveWriter* writer,
                 ErrorText* error);
  bool writeLeft(const Step& step, PackedItem* packed, archive::ArchiveWriter* writer,
                 ErrorText* error) const;
  bool writeKept(const archive::Entry& kept, archive::ArchiveWriter* writer,
                 ErrorText* error) const;
  void reportPacked(const Step& step, const archive::Entry& entry) const;

  const ZipOptions& options_;
  const Messages& messages_;
  const archive::ArchiveReader* old_;
  const archive::PackedSource* source_;
  const archive::StandIns* standIns_;
  size_t unreadable_ = 0;
};

}  // namespace tovrek::zip
