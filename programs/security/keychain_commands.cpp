// Making, removing and unlocking keychains.
#include <fmt/format.h>

#include "host/files.h"
#include "keychain/locations.h"
#include "keychain/settings.h"
#include "keychain/unlocking.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/passwords.h"
#include "programs/security/status.h"

namespace tovrek::security {

int createKeychain(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "p:P");
  if (!options || options->operands().empty()) return kUsage;
  for (const std::string& name : options->operands()) {
    const std::string path = keychain::resolveKeychain(name);
    const std::string call = fmt::format("SecKeychainCreate {}", name);
    if (itemExistsNoFollow(path)) return reportStatus(call, OsStatus::kDuplicateKeychain, streams);
    const auto password = givenPassword(*options, 'p', "password for new keychain: ");
    // A script that forgot it would have a keychain that any password opens.
    if (!password) return reportNoPassword(call, 'p', streams);
    ErrorText error;
    switch (keychain::createKeychain(path, password, &error, keychain::encryptsNewKeychains())) {
      case keychain::CreateResult::kCreated:
        break;
      case keychain::CreateResult::kExists:
        return reportStatus(call, OsStatus::kDuplicateKeychain, streams);
      case keychain::CreateResult::kFailed:
        return reportFailure(fmt::format("{}: {}", call, error.text()), streams);
    }
  }
  return kSuccess;
}

int deleteKeychain(const Words& words, const Streams& streams) {
  constexpr std::string_view kCall = "SecKeychainDelete";
  const auto options = Options::parse(words, "");
  if (!options || options->operands().empty()) return kUsage;
  int status = kSuccess;
  for (const std::string& name : options->operands()) {
    const auto path = existingKeychain({name}, kCall, &status, streams);
    ErrorText error;
    if (path && !keychain::deleteKeychain(*path, &error)) {
      status = reportFailure(fmt::format("{}: {}: {}", kCall, *path, error.text()), streams);
    }
  }
  return status;
}

int lockKeychain(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "a");
  if (!options || options->operands().size() > 1) return kUsage;
  if (options->has('a') && options->operands().empty()) {
    keychain::forgetAllPasswords();
    return kSuccess;
  }
  int status = kSuccess;
  const auto path = existingKeychain(options->operands(), "SecKeychainLock", &status, streams);
  if (path) keychain::forgetPassword(*path);
  return status;
}

int unlockKeychain(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "up:");
  if (!options || options->operands().size() > 1) return kUsage;
  const std::string name =
      options->operands().empty() ? keychain::defaultKeychain() : options->operands().front();
  const std::string call = fmt::format("SecKeychainUnlock {}", name);
  int status = kSuccess;
  const auto path = existingKeychain(options->operands(), call, &status, streams);
  if (!path || options->has('u')) return status;
  const std::string password =
      passwordFrom(*options, 'p', fmt::format("password to unlock {}: ", name));
  if (!keychain::checkPassword(*path, password))
    return reportStatus(call, OsStatus::kAuthFailed, streams);
  ErrorText error;
  if (!keychain::readSettings(*path).encrypted ||
      keychain::rememberPassword(*path, password, &error)) {
    return kSuccess;
  }
  return reportFailure(fmt::format("{}: {}", call, error.text()), streams);
}

int setKeychainPassword(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "o:p:");
  if (!options || options->operands().size() > 1) return kUsage;
  constexpr std::string_view kCall = "SecKeychainChangePassword";
  int status = kSuccess;
  const auto path = existingKeychain(options->operands(), kCall, &status, streams);
  if (!path) return status;
  const std::string before = passwordFrom(*options, 'o', "Old Password: ");
  const auto after = givenPassword(*options, 'p', "New Password: ");
  if (!after) return reportNoPassword(kCall, 'p', streams);
  if (!keychain::checkPassword(*path, before))
    return reportStatus(kCall, OsStatus::kAuthFailed, streams);
  ErrorText error;
  if (!isDirectory(*path)) {
    return reportFailure(fmt::format("{}: {} is a single file.", kCall, *path), streams);
  }
  if (keychain::changePassword(*path, before, *after, &error)) return kSuccess;
  return reportFailure(fmt::format("{}: {}", kCall, error.text()), streams);
}

}  // namespace tovrek::security
