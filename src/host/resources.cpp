#include "host/resources.h"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <thread>

#include "host/files.h"

namespace tovrek {
namespace {

std::optional<uint64_t> numberIn(std::string_view text) {
  text = text.substr(std::min(text.size(), text.find_first_not_of(' ')));
  uint64_t value = 0;
  if (std::from_chars(text.data(), text.data() + text.size(), value).ec != std::errc()) {
    return std::nullopt;
  }
  return value;
}

// A file of the control group that this process is in; empty where there is none.
std::string groupFile(const std::string& name) {
  std::string groups, content;
  if (!readFile("/proc/self/cgroup", &groups)) return "";
  std::istringstream lines(groups);
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("0::/")) continue;
    const std::string folder = "/sys/fs/cgroup" + line.substr(3);
    readFile(folder + (folder.ends_with('/') ? "" : "/") + name, &content);
  }
  return content;
}

// The number of bytes behind a name in /proc/meminfo.
std::optional<uint64_t> memoryField(std::string_view name) {
  std::string content;
  if (!readFile("/proc/meminfo", &content)) return std::nullopt;
  const size_t at = content.find(name);
  if (at == std::string::npos) return std::nullopt;
  const auto kilobytes = numberIn(std::string_view(content).substr(at + name.size()));
  return kilobytes ? std::optional(*kilobytes * 1024) : std::nullopt;
}

}  // namespace

size_t processorCount() {
  size_t count = std::max(1U, std::thread::hardware_concurrency());
  // "QUOTA PERIOD" in microseconds, or "max PERIOD".
  const std::string quota = groupFile("cpu.max");
  const auto allowed = numberIn(quota);
  const auto period =
      numberIn(std::string_view(quota).substr(std::min(quota.size(), quota.find(' '))));
  if (allowed && period && *period != 0) {
    count = std::min<size_t>(count, std::max<uint64_t>(1, *allowed / *period));
  }
  return count;
}

std::optional<uint64_t> availableMemory() {
  auto available = memoryField("MemAvailable:");
  const auto limit = numberIn(groupFile("memory.max"));
  const auto used = numberIn(groupFile("memory.current"));
  if (limit && used) {
    const uint64_t left = *limit - std::min(*limit, *used);
    available = std::min(available.value_or(left), left);
  }
  return available;
}

}  // namespace tovrek
