#include "companions/security/keychain_choice.h"

#include <fmt/format.h>

#include "companions/keychain/locations.h"
#include "companions/security/status.h"
#include "host/files.h"

namespace tovrek::security {

std::optional<std::vector<keychain::Keychain>> chosenKeychains(
    const std::vector<std::string>& names, std::string_view call, int* status) {
  if (names.empty()) return keychain::openSearchList();
  std::vector<keychain::Keychain> result;
  for (const std::string& name : names) {
    const std::string path = keychain::resolveKeychain(name);
    ErrorText error;
    if (!fileExists(path)) {
      *status = reportStatus(call, OsStatus::kNoSuchKeychain);
      return std::nullopt;
    }
    auto opened = keychain::Keychain::open(path, &error);
    if (!opened) {
      *status = reportFailure(fmt::format("{}: {}", path, error.text()));
      return std::nullopt;
    }
    result.push_back(std::move(*opened));
  }
  return result;
}

std::optional<std::string> existingKeychain(const std::vector<std::string>& names,
                                            std::string_view call, int* status) {
  const std::string path =
      names.empty() ? keychain::defaultKeychain() : keychain::resolveKeychain(names.front());
  if (fileExists(path)) return path;
  *status = reportStatus(call, OsStatus::kNoSuchKeychain);
  return std::nullopt;
}

}  // namespace tovrek::security
