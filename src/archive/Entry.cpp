#include "archive/Entry.h"

#include <algorithm>
#include <optional>

#include "archive/extra_fields.h"

namespace tovrek::archive {
namespace {

constexpr int kSystemUnix = 3;
constexpr int kSystemDarwin = 19;

std::optional<time_t> exactTime(const std::string& extra) {
  std::optional<time_t> time;
  forEachExtraField(asBytes(extra), [&](const ExtraField& field) {
    const bool holdsTime = field.kind == kTimeExtra && field.contents.size() >= 5 &&
                           (std::to_integer<unsigned>(field.contents[0]) & 1U) != 0;
    // The field is signed: times before 1970 exist.
    if (holdsTime) time = static_cast<int32_t>(numberAt<uint32_t>(field.contents, 1));
    return !holdsTime;
  });
  return time;
}

}  // namespace

bool Entry::isFromUnix() const {
  const int system = madeBy >> 8;
  return system == kSystemUnix || system == kSystemDarwin;
}

uint32_t Entry::unixMode() const {
  return isFromUnix() ? attributes >> 16 : 0;
}

time_t Entry::modified() const {
  if (const auto time = exactTime(extra)) return *time;
  std::tm parts{};
  parts.tm_year = (dosDate >> 9) + 80;
  parts.tm_mon = std::max((dosDate >> 5 & 15) - 1, 0);
  parts.tm_mday = std::max(dosDate & 31, 1);
  parts.tm_hour = dosTime >> 11;
  parts.tm_min = dosTime >> 5 & 63;
  parts.tm_sec = (dosTime & 31) * 2;
  parts.tm_isdst = -1;
  return std::mktime(&parts);
}

void setDosTime(Entry* entry, time_t time) {
  const time_t even = time + (time & 1);
  std::tm parts{};
  const bool known = ::localtime_r(&even, &parts) != nullptr;
  const int years = known ? parts.tm_year - 80 : 0;
  if (!known || years < 0) {
    entry->dosDate = 1 << 5 | 1;
    entry->dosTime = 0;
  } else if (years > 127) {
    entry->dosDate = 127 << 9 | 12 << 5 | 31;
    entry->dosTime = 23 << 11 | 59 << 5 | 29;
  } else {
    entry->dosDate = static_cast<uint16_t>(years << 9 | (parts.tm_mon + 1) << 5 | parts.tm_mday);
    entry->dosTime =
        static_cast<uint16_t>(parts.tm_hour << 11 | parts.tm_min << 5 | parts.tm_sec / 2);
  }
}

}  // namespace tovrek::archive
