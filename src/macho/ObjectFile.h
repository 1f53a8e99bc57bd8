// A file of machine code as otool and nm see it: as many of its images as can be read.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "host/MappedFile.h"
#include "macho/ByteView.h"
#include "macho/FatTable.h"

namespace tovrek::macho {

// One image. `problem` says why the table entry cannot be right; the bytes are then those that
// the file has of it.
struct Slice {
  FatSlice entry;
  std::string archName;
  ByteView bytes;
  std::string problem;
};

// Reads what a damaged file still holds, where FatFile refuses it.
class ObjectFile {
 public:
  enum class Kind { kThin, kUniversal, kOther };

  // False, with the reason, when the file cannot be read at all.
  bool open(const std::string& path, ErrorText* error);

  const std::string& path() const { return path_; }
  Kind kind() const { return kind_; }
  ByteView bytes() const { return ByteView(file_.bytes()); }
  // Entries of the table, or the thin file as a whole; none for other files.
  const std::vector<Slice>& slices() const { return slices_; }
  // Of the table itself; empty when it is sound.
  const std::string& problem() const { return problem_; }
  // Of a universal file.
  const std::optional<FatTable>& table() const { return table_; }

 private:
  void readTable();

  std::string path_;
  MappedFile file_;
  Kind kind_ = Kind::kOther;
  std::optional<FatTable> table_;
  std::vector<Slice> slices_;
  std::string problem_;
};

// The slices called for: all, or those whose architecture is named. False when one of the names
// has no slice; `missing` then is the first such name.
bool chooseSlices(const ObjectFile& file, const std::vector<std::string>& archs,
                  std::vector<const Slice*>* chosen, std::string* missing);

}  // namespace tovrek::macho
