#include "host/progress_report.h"

#include <sys/socket.h>

#include <charconv>
#include <chrono>
#include <cstdlib>
#include <string_view>

#include "host/platform.h"

namespace tovrek {
namespace {

int64_t steadyTime() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(now).count();
}

// By a program that started another one in its own place the variable may outlive the socket, and
// its number mean a file of ours by now.
bool isReportSocket(int descriptor) {
  int type = 0;
  socklen_t size = sizeof type;
  return ::getsockopt(descriptor, SOL_SOCKET, SO_TYPE, &type, &size) == 0 && type == SOCK_DGRAM;
}

int descriptorForReports() {
  const char* text = std::getenv(kProgressVariable);
  if (text == nullptr) return -1;
  const std::string_view number(text);
  int descriptor = -1;
  const auto parsed = std::from_chars(number.data(), number.data() + number.size(), descriptor);
  const bool isNumber = parsed.ec == std::errc() && parsed.ptr == number.data() + number.size();
  return isNumber && descriptor > 2 && isReportSocket(descriptor) ? descriptor : -1;
}

}  // namespace

ProgressReport::ProgressReport(uint64_t total)
    : descriptor_(descriptorForReports()), total_(total), next_(0) {
  if (descriptor_ >= 0) send();
}

ProgressReport::~ProgressReport() {
  if (descriptor_ >= 0) send();
}

void ProgressReport::add(uint64_t bytes) {
  constexpr int64_t kInterval = 100'000'000;
  if (descriptor_ < 0) return;
  done_.fetch_add(bytes, std::memory_order_relaxed);
  const int64_t now = steadyTime();
  int64_t next = next_.load(std::memory_order_relaxed);
  // Of several threads that find it is time, one tells.
  if (now >= next && next_.compare_exchange_strong(next, now + kInterval)) send();
}

void ProgressReport::send() const {
  const Progress progress{done_.load(std::memory_order_relaxed), total_};
  sendQuietly(descriptor_, &progress, sizeof progress);
}

}  // namespace tovrek
