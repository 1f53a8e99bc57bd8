#include "batch/engine_process.h"

#include <fmt/format.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "host/host_info.h"
#include "host/interruption.h"
#include "host/parallel.h"
#include "host/paths.h"
#include "host/process.h"

namespace tovrek::batch {
namespace {

constexpr auto kPause = std::chrono::milliseconds(200);
constexpr int kInterrupt = 2;  // what engines end their jobs for, however this process was told

}  // namespace

bool runEngine(std::vector<std::string> argv, const std::string& workingDirectory,
               const Workshop& workshop, const std::function<void()>& poll, ErrorText* error) {
  const std::string output = joinPath(workshop.state.path(), "engine.txt");
  const std::string name = argv.front();
  argv.insert(argv.begin(), "/usr/bin/env");
  std::atomic<bool> ended{false};
  bool ran = false;
  ChildEnd end;
  ErrorText reason;
  auto helper = startHelper([&] {
    ran = workshop.children.run({argv, workingDirectory, output}, &end, &reason);
    ended = true;
  });
  if (!helper) return fail(error, "there is no thread to be had");
  while (!ended) {
    if (interruption() != 0 && !workshop.children.isStopped()) workshop.children.stop(kInterrupt);
    std::this_thread::sleep_for(kPause);
    poll();
  }
  helper->join();
  poll();
  if (interruption() != 0) return true;
  if (!ran) return fail(error, fmt::format("{} could not be started: {}", name, reason.text()));
  return end.status != kNotStarted || end.signalled ||
         fail(error, fmt::format("there is no program {} here", name));
}

void EngineRows::poll() {
  std::erase_if(waiting_, [&](const Job* job) {
    const auto result = look_(*job);
    if (result) observer_.ended(*job, *result);
    return result.has_value();
  });
  observer_.waits(waiting_.size());
}

void EngineRows::giveUp(const std::string& reason) {
  JobResult result;
  result.status = interruption() != 0 ? JobStatus::kStopped : JobStatus::kFailed;
  result.text = reason;
  for (const Job* job : waiting_) observer_.ended(*job, result);
  waiting_.clear();
}

bool clearResults(const std::vector<const Job*>& jobs, const StateFolder& state, ErrorText* error) {
  for (const Job* job : jobs) {
    if (!state.removeResult(*job, error)) return false;
  }
  return true;
}

std::string limitWords(const Workshop& workshop) {
  return workshop.limit ? fmt::format(" --timeout {}", workshop.limit->count()) : "";
}

std::string rowCommand(const std::string& table, const Workshop& workshop) {
  return fmt::format("{} run {} --state {}{} --index", quotedForShell(programPath()),
                     quotedForShell(table), quotedForShell(workshop.state.path()),
                     limitWords(workshop));
}

}  // namespace tovrek::batch
