#include "batch/Progress.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/clock.h"
#include "inspect/text.h"

namespace tovrek::batch {

std::string oneLine(std::string_view text) {
  std::string line(text);
  std::ranges::replace(line, '\n', ' ');
  return inspect::forTerminal(line);
}

std::string durationText(double seconds) {
  const auto all = static_cast<uint64_t>(std::clamp(std::ceil(seconds), 0.0, 1e9));
  const uint64_t hours = all / 3600;
  return hours == 0 ? fmt::format("{}:{:02}", all / 60, all % 60)
                    : fmt::format("{}:{:02}:{:02}", hours, all / 60 % 60, all % 60);
}

Progress::Progress(const Streams& streams, bool isTerminal, size_t total)
    : streams_(streams), isTerminal_(isTerminal), total_(total), start_(currentTime()) {}

double Progress::seconds() const {
  return std::max(currentTime() - start_, 0.0);
}

void Progress::ended(const Job& job, const JobResult& result) {
  if (result.status == JobStatus::kStopped) return;
  const bool isDone = result.status == JobStatus::kDone;
  ++(isDone ? done_ : failed_);
  if (isTerminal_ && isDone) return;
  std::string line = fmt::format("[{}/{}] ", done_ + failed_, total_);
  line += isDone ? fmt::format("done {} ({:.2f} s)", oneLine(job.name), result.seconds)
                 : fmt::format("FAILED {} (row {}): {}", oneLine(job.name), job.row,
                               oneLine(result.text));
  finish();
  streams_.out(line + "\n");
}

std::string Progress::counts(size_t running) const {
  const size_t ended = done_ + failed_;
  std::string line =
      fmt::format("{} of {} done, {} failed, {} running", done_, total_, failed_, running);
  const double passed = seconds();
  if (ended == 0 || passed <= 0) return line;
  const double rate = static_cast<double>(ended) / passed;
  line += fmt::format(", {:.1f} a second", rate);
  const size_t left = total_ - std::min(ended, total_);
  if (left != 0) line += fmt::format(", {} left", durationText(static_cast<double>(left) / rate));
  return line;
}

void Progress::show(size_t running) {
  if (!isTerminal_) return;
  const std::string line = counts(running);
  if (line == shown_) return;
  streams_.out("\r" + line + "\x1b[K");
  shown_ = line;
}

void Progress::finish() {
  if (!shown_.empty()) streams_.out("\r\x1b[K");
  shown_.clear();
}

}  // namespace tovrek::batch
