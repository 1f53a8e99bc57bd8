// What went wrong last, for who explains to the user why a run was refused.
#pragma once

#include <string>
#include <string_view>

namespace tovrek {

// What the last program that failed had written on standard error: its end, 4096 bytes at most. Of
// those programs alone whose standard error is captured.
const std::string& lastComplaint();

// Keeps one. For the start of programs.
void keepComplaint(std::string_view words);

// The system's words for a lack of room or of something else that it hands out, where the text has
// them; else empty.
enum class Shortage { kNone, kDiskFull, kLimit, kDamagedDisk };
struct ShortageFound {
  Shortage kind = Shortage::kNone;
  std::string words{};
};
ShortageFound shortageIn(std::string_view text);

}  // namespace tovrek
