// Names in unzip's lines.
#pragma once

#include <string>

namespace tovrek::unzip {

// The name, filled up to 22 bytes so that what follows stands in a column.
inline std::string paddedName(const std::string& name) {
  constexpr size_t kColumn = 22;
  return name.size() < kColumn ? name + std::string(kColumn - name.size(), ' ') : name;
}

}  // namespace tovrek::unzip
