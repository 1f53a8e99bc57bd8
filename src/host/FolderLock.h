// A lock on a folder, which ends with the process however that ends.
#pragma once

#include <string>

#include "host/ErrorText.h"
#include "host/unique_fd.h"

namespace tovrek {

// Held from take() until destruction. Children that this process starts do not hold it.
class FolderLock {
 public:
  // False, with the reason, when somebody else holds it or the folder is gone; never waits.
  bool take(const std::string& folder, ErrorText* error = nullptr);

 private:
  UniqueFd folder_;
};

}  // namespace tovrek
