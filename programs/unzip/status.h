// The exit statuses of unzip.
#pragma once

namespace tovrek::unzip {

inline constexpr int kDone = 0;
inline constexpr int kWarning = 1;
inline constexpr int kDamaged = 2;
inline constexpr int kNoMemory = 4;
inline constexpr int kNoArchive = 9;
inline constexpr int kBadOptions = 10;
inline constexpr int kNothingMatched = 11;
inline constexpr int kCannotWrite = 50;
inline constexpr int kUnknownMethod = 81;
inline constexpr int kEncrypted = 5;

}  // namespace tovrek::unzip
