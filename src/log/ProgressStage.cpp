#include "log/ProgressStage.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "host/terminal.h"

namespace tovrek {
namespace {

constexpr std::chrono::milliseconds kPatience{500};
constexpr std::chrono::milliseconds kInterval{100};

std::string barOf(double share, size_t width) {
  const size_t full = static_cast<size_t>(share * static_cast<double>(width));
  return "[" + std::string(full, '#') + std::string(width - full, '.') + "]";
}

std::string timeLeft(double seconds) {
  constexpr double kLongest = 100 * 60;  // as far as two digits of minutes go
  if (seconds >= kLongest) return "";
  const auto whole = static_cast<unsigned>(std::ceil(seconds));
  return fmt::format("  {}:{:02} left", whole / 60, whole % 60);
}

}  // namespace

std::string progressLine(std::string_view name, const Progress& progress, double seconds,
                         size_t width) {
  constexpr size_t kNarrowestBar = 10;
  constexpr size_t kWidestBar = 40;
  constexpr double kMegabyte = 1e6;
  const auto done = static_cast<double>(progress.done);
  const auto total = static_cast<double>(progress.total);
  // Files may grow, and a child may say anything.
  const double share = progress.total == 0 ? 0 : std::min(1.0, done / total);
  const double rate = seconds > 0 ? done / seconds : 0;
  std::string numbers = progress.total == 0 ? fmt::format("  {:.0f} MB", done / kMegabyte)
                                            : fmt::format("  {:3.0f} %", std::floor(share * 100));
  if (rate > 0) numbers += fmt::format("  {:.0f} MB/s", rate / kMegabyte);
  if (rate > 0 && progress.total != 0) numbers += timeLeft(std::max(0.0, total - done) / rate);
  std::string line(name);
  const size_t taken = line.size() + numbers.size() + std::string_view("  []").size();
  if (progress.total != 0 && width >= taken + kNarrowestBar) {
    line += "  " + barOf(share, std::min(width - taken, kWidestBar));
  }
  return (line + numbers).substr(0, width);
}

ProgressStage::ProgressStage(bool isSeen, std::string_view name, Total total)
    : isSeen_(isSeen), name_(name), askTotal_(std::move(total)), nextShow_(begin_ + kPatience) {}

ProgressStage::~ProgressStage() {
  if (isSeen_) clearPassingLine();
}

void ProgressStage::add(uint64_t bytes) {
  finished_ += bytes;
  if (isSeen_) show();
}

std::function<void(const Progress&)> ProgressStage::partReports() {
  if (!isSeen_) return {};
  return [this](const Progress& progress) {
    part_ = progress;
    show();
  };
}

void ProgressStage::endPart() {
  finished_ += part_.done;
  part_ = Progress();
  if (isSeen_) clearPassingLine();
}

void ProgressStage::show() {
  const auto now = Clock::now();
  if (now < nextShow_) return;
  nextShow_ = now + kInterval;
  const auto width = errorLineWidth();
  if (!width) return;
  if (!total_ && askTotal_) total_ = askTotal_();
  const double seconds = std::chrono::duration<double>(now - begin_).count();
  const uint64_t total = total_.value_or(part_.total == 0 ? 0 : finished_ + part_.total);
  showPassingLine(progressLine(name_, {finished_ + part_.done, total}, seconds, *width));
}

}  // namespace tovrek
