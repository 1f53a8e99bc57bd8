// Programs of others that spread the work.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "batch/Observer.h"
#include "batch/execution.h"

namespace tovrek::batch {

// Runs the engine with its output in `engine.txt` of the state folder, and calls `poll` in between
// until it ends, and once more then. After an interruption the engine gets a signal and is waited
// for. False, with the reason, when it could not be run.
bool runEngine(std::vector<std::string> argv, const std::string& workingDirectory,
               const Workshop& workshop, const std::function<void()>& poll, ErrorText* error);

// The rows that an engine has, and what is known of them.
class EngineRows {
 public:
  // What a row's process has left; none as long as it has not ended.
  using Look = std::function<std::optional<JobResult>(const Job&)>;

  EngineRows(const std::vector<const Job*>& jobs, const Observer& observer, Look look)
      : waiting_(jobs), observer_(observer), look_(std::move(look)) {}

  // Tells the observer of those that have ended since.
  void poll();
  // Whatever has not ended by now has failed, unless the run was interrupted.
  void giveUp(const std::string& reason);

 private:
  std::vector<const Job*> waiting_;
  const Observer& observer_;
  Look look_;
};

// Removes what earlier runs have left of these rows, so that a result there is one of this run.
bool clearResults(const std::vector<const Job*>& jobs, const StateFolder& state, ErrorText* error);

// The option that tells a row's process how long it may take, with a blank in front; empty for
// none.
std::string limitWords(const Workshop& workshop);
// The program that runs one row of a table, without the row's number, each word quoted for a shell.
std::string rowCommand(const std::string& table, const Workshop& workshop);

}  // namespace tovrek::batch
