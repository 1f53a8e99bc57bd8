// The exit statuses of zip.
#pragma once

namespace tovrek::zip {

inline constexpr int kDone = 0;
inline constexpr int kDamagedArchive = 3;
inline constexpr int kReadFailed = 11;
inline constexpr int kNothingToDo = 12;
inline constexpr int kWriteFailed = 14;
inline constexpr int kCannotCreate = 15;
inline constexpr int kBadArguments = 16;
inline constexpr int kSomeUnreadable = 18;

}  // namespace tovrek::zip
