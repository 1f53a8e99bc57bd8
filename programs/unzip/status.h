// The exit statuses of unzip.
#pragma once

namespace tovrek::unzip {

inline constexpr int kDone = 0, kWarning = 1, kDamaged = 2, kNoMemory = 4, kNoArchive = 9,
                     kBadOptions = 10, kNothingMatched = 11, kCannotWrite = 50, kUnknownMethod = 81,
                     kEncrypted = 5;

}  // namespace tovrek::unzip
