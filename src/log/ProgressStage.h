// The sign of life of a long stage: a line on the terminal with a bar, the share that is done, the
// rate and the time that is left.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "host/progress_report.h"

namespace tovrek {

// Shows its line when it has lasted for half a second, and clears it at its end and before anything
// else is printed. For one thread.
class ProgressStage {
 public:
  // The bytes that the whole stage has to do with; asked for only when the line is first shown.
  using Total = std::function<uint64_t()>;

  // Shows nothing where nobody is to see it. Without a total that of the parts counts.
  ProgressStage(bool isSeen, std::string_view name, Total total = {});
  ~ProgressStage();
  ProgressStage(const ProgressStage&) = delete;
  ProgressStage& operator=(const ProgressStage&) = delete;

  // So many bytes more are done.
  void add(uint64_t bytes);
  // For Command::onProgress of a child that does a part; empty where nobody sees it.
  std::function<void(const Progress&)> partReports();
  // The child has ended. Clears the line until something else is heard.
  void endPart();

 private:
  using Clock = std::chrono::steady_clock;
  void show();

  const bool isSeen_;
  const std::string name_;
  Total askTotal_;
  std::optional<uint64_t> total_;
  uint64_t finished_ = 0;  // of the parts that have ended, and what this process has done
  Progress part_;          // of the child that runs
  const Clock::time_point begin_ = Clock::now();
  Clock::time_point nextShow_;
};

// The line, in at most `width` characters: "Packing  [####....]  50 %  310 MB/s  0:12 left". What
// has no room, or is not known, is left out.
std::string progressLine(std::string_view name, const Progress& progress, double seconds,
                         size_t width);

}  // namespace tovrek
