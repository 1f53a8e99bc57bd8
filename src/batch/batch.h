// Running and checking tables of jobs.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "host/Streams.h"

namespace tovrek::batch {

enum ExitStatus {
  kAllDone = 0,
  kNotAll = 1,     // a job failed or was left, or the table has faults
  kCannotRun = 2,  // wrong usage, or a table or folder that cannot be used
};

enum class EngineKind { kLocal, kParallel, kSlurm };

struct RunOptions {
  std::string table;
  std::optional<std::string> state;           // folder; none for the one beside the table
  std::optional<size_t> jobs;                 // at a time
  std::optional<size_t> index;                // this job alone, counted from 0
  std::optional<std::chrono::seconds> limit;  // for one job; none for no limit
  bool resume = false;                        // leaves jobs alone that have failed already
  EngineKind engine = EngineKind::kLocal;
  std::optional<std::string> hosts;   // a file with names of hosts, for kParallel
  std::optional<std::string> remote;  // the program's path on them; none for this one's
  std::optional<std::string> report;  // a folder
};

// Where a program prints.
struct Console {
  const Streams& streams;
  bool isTerminal = false;
};

// Judges all jobs, then runs those that are not done and unchanged. Answers an ExitStatus, and does
// not return from an interruption.
int runTable(const RunOptions& options, const Console& console);

// Judges all jobs as Inspect would, and writes nothing. Answers an ExitStatus.
int checkTable(const std::string& table, const Console& console);

}  // namespace tovrek::batch
