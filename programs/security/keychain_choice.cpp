#include "programs/security/keychain_choice.h"

#include <fmt/format.h>

#include "host/file_status.h"
#include "host/files.h"
#include "keychain/locations.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

// Scripts unlock or list the login keychain without making it: a Mac always has one.
bool isThere(const std::string& path) {
  if (fileExists(path)) return true;
  return path == keychain::resolveKeychain("login.keychain") &&
         keychain::createKeychain(path, std::nullopt, nullptr) == keychain::CreateResult::kCreated;
}

}  // namespace

void tellUnreadable(const std::vector<keychain::Keychain>& keychains, const Streams& streams) {
  for (const keychain::Keychain& each : keychains) {
    for (const std::string& line : each.unreadable()) streams.error("security: " + line + "\n");
  }
}

std::optional<std::vector<keychain::Keychain>> chosenKeychains(
    const std::vector<std::string>& names, std::string_view call, int* status,
    const Streams& streams) {
  if (names.empty()) {
    std::vector<keychain::Unopened> unopened;
    auto searched = keychain::openSearchList(&unopened);
    tellUnreadable(searched, streams);
    for (const keychain::Unopened& each : unopened) {
      // These two come with the first import; others were put into the list by name.
      const bool isToCome = each.path == keychain::defaultKeychain() ||
                            each.path == keychain::resolveKeychain("login.keychain");
      if (each.isMissing && isToCome) continue;
      const int failed = reportFailure(each.path + ": " + each.reason, streams);
      if (!each.isMissing) *status = failed;
    }
    return searched;
  }
  std::vector<keychain::Keychain> result;
  for (const std::string& name : names) {
    const std::string path = keychain::resolveKeychain(name);
    ErrorText error;
    if (!isThere(path)) {
      *status = reportStatus(call, OsStatus::kNoSuchKeychain, streams);
      return std::nullopt;
    }
    auto opened = keychain::Keychain::open(path, &error);
    if (!opened) {
      *status = reportFailure(fmt::format("{}: {}", path, error.text()), streams);
      return std::nullopt;
    }
    result.push_back(std::move(*opened));
  }
  tellUnreadable(result, streams);
  return result;
}

std::optional<std::string> existingKeychain(const std::vector<std::string>& names,
                                            std::string_view call, int* status,
                                            const Streams& streams) {
  const std::string path =
      names.empty() ? keychain::defaultKeychain() : keychain::resolveKeychain(names.front());
  if (isThere(path)) return path;
  *status = reportStatus(call, OsStatus::kNoSuchKeychain, streams);
  return std::nullopt;
}

std::optional<keychain::Keychain> keychainToFill(const std::optional<std::string>& name,
                                                 std::string_view call, int* status,
                                                 const Streams& streams) {
  const std::string path = name ? keychain::resolveKeychain(*name) : keychain::defaultKeychain();
  ErrorText error;
  if (!fileExists(path)) {
    if (path != keychain::defaultKeychain()) {
      *status = withAdvice(
          reportStatus(call, OsStatus::kNoSuchKeychain, streams),
          fmt::format("there is no {}: security create-keychain makes keychains", path), streams);
      return std::nullopt;
    }
    if (keychain::createKeychain(path, std::nullopt, &error) == keychain::CreateResult::kFailed) {
      *status = reportFailure(fmt::format("{}: {}: {}", call, path, error.text()), streams);
      return std::nullopt;
    }
  }
  auto opened = keychain::Keychain::open(path, &error);
  if (!opened)
    *status = reportFailure(fmt::format("{}: {}: {}", call, path, error.text()), streams);
  return opened;
}

int writeResult(const std::optional<std::string>& path, std::string_view content,
                const Streams& streams, Secrecy secrecy) {
  if (!path) {
    streams.out(content);
    return kSuccess;
  }
  ErrorText error;
  constexpr uint32_t kOwnerAlone = 0600;
  const auto status = statusOf(*path);
  const bool replaces = !status || status->kind == ItemKind::kFile;
  const bool written = secrecy == Secrecy::kSecret && replaces
                           ? writeFileAtomically(*path, std::span(&content, 1), kOwnerAlone, &error)
                           : writeFileOrDevice(*path, content, &error);
  if (written) return kSuccess;
  return reportFailure(fmt::format("unable to open \"{}\" for writing: {}", *path, error.text()),
                       streams);
}

}  // namespace tovrek::security
