// The private scratch folder of a run.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "host/FolderLock.h"
#include "host/signals.h"

namespace tovrek {

// Owns everything below its folder and removes it when destroyed, or when a signal ends the run;
// so it must outlive every path that is handed out under it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() = default;
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  // Makes the scratch folder and the package folder in it.
  bool Create(ErrorText* error);
  // Makes the scratch folder alone, for work on an existing package.
  bool CreateTempDirForCma(ErrorText* error);
  // With `create` false nothing is touched and the result is false. A second call makes another
  // folder and forgets the first, which then stays.
  bool createTempDir(bool create, bool andPackageDir, ErrorText* error);

  // Empty until created.
  const std::string& tempDir() const { return tempDir_; }
  // Where the output package is put together; empty unless asked for.
  const std::string& packageDir() const { return packageDir_; }
  bool created() const { return created_; }
  // Folders of killed runs of this user that were removed on the way.
  const std::vector<std::string>& leftovers() const { return leftovers_; }

 private:
  bool makeFolder(const std::string& family, ErrorText* error);

  std::string tempDir_;
  std::string packageDir_;
  bool created_ = false;
  FolderLock lock_;
  std::vector<std::string> leftovers_;
  std::optional<RemovedOnSignal> removedOnSignal_;
};

}  // namespace tovrek
