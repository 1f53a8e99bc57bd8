// Names in unzip's lines.
#pragma once

#include <string>

#include "host/printable.h"

namespace tovrek::unzip {

// The name, filled up to 22 bytes so that what follows stands in a column.
inline std::string paddedName(const std::string& name) {
  constexpr size_t kColumn = 22;
  const std::string shown = printable(name);
  return shown.size() < kColumn ? shown + std::string(kColumn - shown.size(), ' ') : shown;
}

}  // namespace tovrek::unzip
