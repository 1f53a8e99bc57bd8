// Points in time and their text forms.
#pragma once

#include <cstdint>
#include <string>

namespace tovrek {

// Seconds since 1970-01-01 00:00 UTC, with fractions.
double currentTime();
// Seconds between that epoch and 2001-01-01 00:00 UTC, the epoch of property-list dates.
inline constexpr double kReferenceDateOffset = 978307200.0;

// "2020-05-01 10:11:12 +0000", in UTC; right for any year up to 9999.
std::string dateDescription(double secondsSince1970);
// strftime pattern over the local time.
std::string localTime(const char* pattern, double secondsSince1970);

}  // namespace tovrek
