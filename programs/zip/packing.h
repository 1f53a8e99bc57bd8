// Turning one item on disk into an entry.
#pragma once

#include <string>

#include "archive/Entry.h"
#include "archive/PackedSource.h"
#include "archive/deflate.h"
#include "host/InputFile.h"
#include "programs/zip/FileList.h"

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
  archive::Inflater inflater{};
  archive::Buffer contents{};  // of the last small file
  archive::Buffer unpacked{};  // what the contents were compared with
};

// Up to this size the contents are read at once; larger files are mapped.
inline constexpr uint64_t kLargestRead = 256 << 10;

// Reads and packs the item. `source` may be null. What is packed depends on the contents, the
// options and the source only.
PackedItem packItem(const SourceItem& item, bool withExtra, const archive::PackedSource* source,
                    Packer* packer);

}  // namespace tovrek::zip
