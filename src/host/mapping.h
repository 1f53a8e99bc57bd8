// Files as memory: what MappedFile and EditedFile share.
#pragma once

#include <cstddef>
#include <string>

#include "host/unique_fd.h"

namespace tovrek {

// How far opening a file and mapping it came; the reason of a failure is in errno.
enum class Mapped { kDone, kOpenFailed, kStatFailed, kMapFailed };

struct Mapping {
  std::byte* data = nullptr;
  size_t size = 0;
  UniqueFd fd{};  // the file, still open
};

// Maps a whole regular file, to be read or with `edit` to be changed as well. Anything else is
// kMapFailed. An empty file, of which nothing can be mapped, has no data.
Mapped mapFile(const std::string& path, bool edit, Mapping* mapping);

}  // namespace tovrek
