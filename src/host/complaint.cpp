#include "host/complaint.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace tovrek {
namespace {

std::string& kept() {
  static std::string complaint;
  return complaint;
}

}  // namespace

const std::string& lastComplaint() {
  return kept();
}

void keepComplaint(std::string_view words) {
  constexpr size_t kMost = 4096;
  kept() = words.substr(words.size() - std::min(words.size(), kMost));
}

ShortageFound shortageIn(std::string_view text) {
  constexpr std::pair<int, Shortage> kReasons[] = {
      {ENOSPC, Shortage::kDiskFull}, {EDQUOT, Shortage::kDiskFull}, {EFBIG, Shortage::kLimit},
      {EMFILE, Shortage::kLimit},    {ENFILE, Shortage::kLimit},    {ENOMEM, Shortage::kLimit},
      {EIO, Shortage::kDamagedDisk}};
  for (const auto& [number, kind] : kReasons) {
    const std::string words = std::strerror(number);
    if (text.find(words) != text.npos) return {kind, words};
  }
  return {};
}

}  // namespace tovrek
