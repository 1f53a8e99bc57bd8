#include "host/clock.h"

#include <fmt/format.h>

#include <chrono>
#include <cmath>
#include <ctime>

namespace tovrek {

double currentTime() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

std::string dateDescription(double secondsSince1970) {
  const auto seconds = static_cast<std::time_t>(std::floor(secondsSince1970));
  std::tm parts{};
  if (::gmtime_r(&seconds, &parts) == nullptr) return "";
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", parts.tm_year + 1900,
                     parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
}

std::string localTime(const char* pattern, double secondsSince1970) {
  const auto seconds = static_cast<std::time_t>(std::floor(secondsSince1970));
  std::tm parts{};
  if (::localtime_r(&seconds, &parts) == nullptr) return "";
  char text[128];
  return std::string(text, std::strftime(text, sizeof text, pattern, &parts));
}

}  // namespace tovrek
