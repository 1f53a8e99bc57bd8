// Turning one item on disk into an entry.
#pragma once

#include <string>

#include "archive/Entry.h"
#include "archive/PackedSource.h"
#include "archive/PieceDeflater.h"
#include "archive/deflate.h"
#include "host/InputFile.h"
#include "programs/zip/FileList.h"
#include "programs/zip/large_files.h"

namespace tovrek::zip {

struct PackedItem {
  archive::Entry entry{};
  archive::Buffer packed{};  // the bytes for the archive, unless `large` is open
  InputFile large{};         // a file to be stored, copied from its beginning while it is written
  std::string fault{};       // why the item cannot be read
};

struct Packer {
  explicit Packer(int chosenLevel) : level(chosenLevel), deflater(chosenLevel) {}
  int level;
  archive::Deflater deflater;
  archive::PieceDeflater pieces{};
  archive::Inflater inflater{};
  archive::Buffer contents{};  // of the last small file
  archive::Buffer unpacked{};  // what the contents were compared with
};

// The entry as far as it does not depend on the contents.
archive::Entry describe(const SourceItem& item, bool withExtra);
// What the level makes of an entry's flags.
uint16_t levelFlags(int level);

// Opens the item's file; false, with the reason, when another stands there by now.
bool openItemFile(const SourceItem& item, InputFile* file, ErrorText* error);

// Reads and packs the item, whose plan is kWhole, kStore or kLeft, of which only the entry is made.
// `source` may be null. What is packed depends on the contents, the options and the source only.
PackedItem packItem(const SourceItem& item, const LargeFile& plan, bool withExtra,
                    const archive::PackedSource* source, Packer* packer);

// Reads and packs one piece of a large file. The answer's entry has the CRC of the piece.
PackedItem packPiece(const SourceItem& item, archive::PieceMethod method, uint64_t piece,
                     Packer* packer);

}  // namespace tovrek::zip
