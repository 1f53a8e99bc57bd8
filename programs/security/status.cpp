#include "programs/security/status.h"

#include <fmt/format.h>

namespace tovrek::security {

namespace {

std::string_view messageOf(OsStatus status) {
  switch (status) {
    case OsStatus::kInteractionNotAllowed:
      return "User interaction is not allowed.";
    case OsStatus::kItemNotFound:
      return "The specified item could not be found in the keychain.";
    case OsStatus::kDuplicateItem:
      return "The specified item already exists in the keychain.";
    case OsStatus::kDuplicateKeychain:
      return "A keychain with the same name already exists.";
    case OsStatus::kNoSuchKeychain:
      return "The specified keychain could not be found.";
    case OsStatus::kAuthFailed:
      return "The user name or passphrase you entered is not correct.";
  }
  return "";
}

}  // namespace

int reportStatus(std::string_view call, OsStatus status, const Streams& streams) {
  streams.error(fmt::format("security: {}: {}\n", call, messageOf(status)));
  return static_cast<int>(status) & 0xff;
}

int reportFailure(std::string_view text, const Streams& streams) {
  streams.error(fmt::format("security: {}\n", text));
  return kFailure;
}

}  // namespace tovrek::security
