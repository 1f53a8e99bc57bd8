#include "host/shortage.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace tovrek {
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
