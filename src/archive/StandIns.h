// Contents that stay in their archive while a package is unpacked only to be packed again.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "archive/ArchiveReader.h"
#include "host/ErrorText.h"
#include "host/InputFile.h"

namespace tovrek::archive {

// What $TOVREK_STAND_INS asks of unzip and zip together: the app in a package, which may be all but
// a thousandth of it, is checked where it lies and copied from there into the new package, once. In
// the unpacked package a file stands for it that is as long as it, and has the same permissions and
// time, but takes no room: it begins with one line, and the rest reads as zeros.
//
// The line begins with a word that the caller draws for this one run, so that no file that comes in
// a package, or from anywhere else, can be taken for such a one. It also tells the version of the
// archive and which entry of it is meant, with its CRC. So a line that was copied still stands for
// the same contents, and one that leads nowhere is an error.
//
// The variable's value is the word, a space, and the absolute path of the archive.
class StandIns {
 public:
  // None where nobody asks, or (with the reason) when the archive cannot be opened.
  static std::optional<StandIns> asked(ErrorText* error);

  // Whether this is the archive.
  bool isOf(const std::string& path) const;
  // Whether a file may stand for the entry: nothing but zip reads it, and zip would store it again.
  static bool mayStandFor(const Entry& entry, Bytes packed);
  // What the file begins with.
  std::string lineFor(const Entry& entry) const;

  // Smaller files are what they are.
  static constexpr uint64_t kSmallest = 1 << 20;
  // The entry that the file stands for, null when it is what it is. False, with the reason, when
  // the file cannot be read, or the archive does not have the entry any more.
  bool find(const std::string& path, uint64_t size, const Entry** entry, ErrorText* error) const;
  // The archive, to copy contents from. Afterwards isUnchanged() says whether they were those that
  // were checked.
  const InputFile& file() const { return file_; }
  bool isUnchanged(ErrorText* error) const;

 private:
  std::string word_;  // with the space
  std::string version_;
  InputFile file_;
  ArchiveReader reader_;
};

}  // namespace tovrek::archive
