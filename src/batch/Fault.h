// What is wrong with a table, found before anything of it is run.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace tovrek::batch {

struct Fault {
  size_t row = 0;      // counted from 1; 0 for the table itself
  size_t line = 0;     // of the file; 0 where it is about no line
  std::string column;  // empty for the whole row
  std::string reason;

  // "row 3 (line 5), Profile: there is no such file", with what strangers wrote as it is.
  std::string text() const;
};
using Faults = std::vector<Fault>;

}  // namespace tovrek::batch
