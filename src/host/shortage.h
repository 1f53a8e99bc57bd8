// Whether something failed because the system had no more of what it needs.
#pragma once

#include <string>
#include <string_view>

namespace tovrek {

enum class Shortage { kNone, kDiskFull, kLimit, kDamagedDisk };
struct ShortageFound {
  Shortage kind = Shortage::kNone;
  std::string words{};  // the system's
};

// Found by the system's words for a lack of room or of something else that it hands out.
ShortageFound shortageIn(std::string_view text);

}  // namespace tovrek
