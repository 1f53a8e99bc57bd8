// The engine's trace lines.
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

#include "log/WrapperLogger.h"
#include "macho/ByteView.h"

namespace tovrek {

// Every trace line of the engine goes through here; lines are cut at 4095 bytes.
template <class... Args>
void MachORebuildLib_Log(const WrapperLogger& logger, fmt::format_string<Args...> format,
                         Args&&... args) {
  std::array<char, 4095> buffer;
  const auto written =
      fmt::format_to_n(buffer.data(), buffer.size(), format, std::forward<Args>(args)...);
  logger.logBasic(std::string_view(buffer.data(), std::min(written.size, buffer.size())));
}

namespace macho {

// Where a place of the image lies in memory, for traces; the offset may be anything.
const void* addressOf(ByteView image, uint64_t offset);

}  // namespace macho
}  // namespace tovrek
