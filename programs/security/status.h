// Statuses of keychain operations and how they reach the user.
#pragma once

#include <string_view>

#include "host/Streams.h"

namespace tovrek::security {

inline constexpr int kSuccess = 0;
inline constexpr int kFailure = 1;
inline constexpr int kUsage = 2;

// The platform's numbers; a program can pass on only their low byte.
enum class OsStatus : int {
  kInteractionNotAllowed = -25308,  // the keychain is locked
  kItemNotFound = -25300,
  kDuplicateItem = -25299,
  kDuplicateKeychain = -25296,
  kNoSuchKeychain = -25294,
  kAuthFailed = -25293,
};

// Prints "security: CALL: MESSAGE" and answers the exit status (36, 44, 45, 48, 50, 51).
int reportStatus(std::string_view call, OsStatus status, const Streams& streams);
// Adds a line "security: TEXT" of ours, which says what to do, and answers the status as it is.
int withAdvice(int status, std::string_view text, const Streams& streams);
// Prints "security: TEXT" and answers the exit status 1.
int reportFailure(std::string_view text, const Streams& streams);

}  // namespace tovrek::security
