// The items that go into an archive.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "archive/StandIns.h"
#include "host/file_status.h"
#include "programs/zip/ZipOptions.h"

namespace tovrek::zip {

struct SourceItem {
  std::string name{};  // in the archive; folders end with "/"
  std::string path{};  // on disk
  FileStatus status{};
  const archive::Entry* standsFor = nullptr;  // its contents, where they were left in an archive
};

// Collects what the operands name, sorted by the bytes of the names so that the archive does not
// depend on the order in which a file system lists its folders.
class FileList {
 public:
  explicit FileList(const ZipOptions& options) : options_(options) {}

  // False, with a text, when two different items would get the same name.
  bool collect(ErrorText* error);
  // Marks the files that stand for others. `standIns` has to outlive the items. False, with the
  // file and the reason, when one cannot be read, or stands for what is not there.
  bool findStandIns(const archive::StandIns& standIns, ErrorText* error);
  const std::vector<SourceItem>& items() const { return items_; }
  // What was passed over, one line each, what could not be read, and whether the archive is
  // incomplete for either.
  const std::vector<std::string>& warnings() const { return warnings_; }
  const std::vector<std::string>& unreadable() const { return unreadable_; }
  bool incomplete() const { return incomplete_; }

 private:
  void add(const std::string& path, const std::string& name);
  void addFolder(SourceItem item);
  void leaveOut(const std::string& path, const std::string& reason);

  const ZipOptions& options_;
  std::vector<SourceItem> items_;
  std::vector<std::string> warnings_;
  std::vector<std::string> unreadable_;
  std::vector<ItemIdentity> open_;       // the folders between the operand and the present item
  std::optional<ItemIdentity> archive_;  // not to be packed into itself
  bool incomplete_ = false;
};

}  // namespace tovrek::zip
