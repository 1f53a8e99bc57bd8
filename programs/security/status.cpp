#include "programs/security/status.h"

#include <fmt/format.h>

#include <algorithm>

namespace tovrek::security {

namespace {

struct Message {
  OsStatus status;
  std::string_view text;
};
constexpr Message kMessages[] = {
    {OsStatus::kInteractionNotAllowed, "User interaction is not allowed."},
    {OsStatus::kItemNotFound, "The specified item could not be found in the keychain."},
    {OsStatus::kDuplicateItem, "The specified item already exists in the keychain."},
    {OsStatus::kDuplicateKeychain, "A keychain with the same name already exists."},
    {OsStatus::kNoSuchKeychain, "The specified keychain could not be found."},
    {OsStatus::kAuthFailed, "The user name or passphrase you entered is not correct."},
};

std::string_view messageOf(OsStatus status) {
  const auto* known = std::ranges::find(kMessages, status, &Message::status);
  return known == std::end(kMessages) ? "" : known->text;
}

}  // namespace

int reportStatus(std::string_view call, OsStatus status, const Streams& streams) {
  streams.error(fmt::format("security: {}: {}\n", call, messageOf(status)));
  return static_cast<int>(status) & 0xff;
}

int withAdvice(int status, std::string_view text, const Streams& streams) {
  reportFailure(text, streams);
  return status;
}

int reportFailure(std::string_view text, const Streams& streams) {
  streams.error(fmt::format("security: {}\n", text));
  return kFailure;
}

}  // namespace tovrek::security
