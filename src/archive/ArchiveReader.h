// Reading the container of a zip archive.
#pragma once

#include <string>
#include <vector>

#include "archive/Entry.h"
#include "host/ErrorText.h"
#include "host/MappedFile.h"

namespace tovrek::archive {

// The entries of one archive file. Opening checks all that can be known without unpacking: every
// record lies inside the file, each entry's own header agrees with the directory, no two entries
// share bytes, and no entry claims more than its packed bytes can give. What passed needs no
// further checks of bounds.
class ArchiveReader {
 public:
  enum class Opened {
    kDone,
    kUnreadable,   // no such file, or not to be opened
    kNoEndRecord,  // no archive, or one cut short
    kDamaged,      // an archive that contradicts itself; `error` says where
  };
  Opened open(const std::string& path, ErrorText* error);
  // The same for an archive in memory, which must outlive the reader.
  Opened openBytes(Bytes bytes, ErrorText* error);

  const std::vector<Entry>& entries() const { return entries_; }
  const std::string& comment() const { return comment_; }
  // Whether DOS programs made entries whose folders are parted by backslashes. Such names have
  // slashes in entries().
  bool hadBackslashes() const { return hadBackslashes_; }
  // Turns names from the code page of DOS into UTF-8: those that are not flagged as UTF-8 and come
  // from systems that have that code page.
  void decodeNames();
  // The packed bytes of one of `entries()`.
  Bytes packed(const Entry& entry) const {
    return bytes_.subspan(entry.dataOffset, entry.compressedSize);
  }
  // The extra fields of the entry's own header; they differ from those of the directory.
  Bytes localExtra(const Entry& entry) const {
    const size_t at = entry.headerOffset + kLocalHeaderSize + entry.storedNameLength;
    return bytes_.subspan(at, entry.dataOffset - at);
  }

 private:
  struct Directory {
    uint64_t offset = 0;
    uint64_t size = 0;
    uint64_t count = 0;
    uint64_t end = 0;  // where the end records begin
  };
  bool findDirectory(Directory* directory, bool* found, ErrorText* error);
  bool readZip64End(size_t endRecord, Directory* directory, ErrorText* error) const;
  static const char* readRecord(Bytes records, size_t* at, Entry* entry);
  bool readDirectory(const Directory& directory, ErrorText* error);
  bool checkLocalHeaders(const Directory& directory, ErrorText* error);
  void replaceBackslashes();

  MappedFile file_;
  Bytes bytes_;
  std::vector<Entry> entries_;
  std::string comment_;
  bool hadBackslashes_ = false;
};

}  // namespace tovrek::archive
