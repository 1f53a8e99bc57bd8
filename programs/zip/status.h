// The exit statuses of zip.
#pragma once

namespace tovrek::zip {

inline constexpr int kDone = 0, kDamagedArchive = 3, kReadFailed = 11, kNothingToDo = 12,
                     kWriteFailed = 14, kCannotCreate = 15, kBadArguments = 16,
                     kSomeUnreadable = 18;

}  // namespace tovrek::zip
