// One row of a table as the command that it stands for.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "batch/Fault.h"
#include "batch/Table.h"
#include "batch/columns.h"

namespace tovrek::batch {

struct JobOption {
  const Column* column;
  std::string value;  // empty for a switch; paths are absolute
};

struct Job {
  size_t row = 0;    // counted from 1
  size_t line = 0;   // of the table's file
  std::string name;  // for people; that of the first output where the table gives none
  std::string key;   // names its folder: the same for every table with this output
  CommandKind command = CommandKind::kWrap;
  std::vector<JobOption> options;  // in the order of the columns' table

  // An option's value by its column's name; null when it is not given.
  const std::string* value(std::string_view column) const;
  // The paths of one kind, in the order of the columns.
  std::vector<std::string> paths(ColumnKind kind) const;
  const std::string& input() const { return *value("in"); }
};

// The jobs of all rows. What cannot be meant is told in `faults`: columns that no command, or not
// the row's, knows, missing ones, words that a command line could not hold. Needs no file.
std::vector<Job> makeJobs(const Table& table, Faults* faults);

}  // namespace tovrek::batch
