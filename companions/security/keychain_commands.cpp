// Making, removing and unlocking keychains.
#include <fmt/format.h>
#include <unistd.h>

#include <iostream>

#include "companions/keychain/locations.h"
#include "companions/security/Options.h"
#include "companions/security/commands.h"
#include "companions/security/keychain_choice.h"
#include "companions/security/status.h"
#include "host/files.h"
#include "log/SystemLog.h"

namespace tovrek::security {

namespace {

// The value of -p, else what is typed, else a line of standard input.
std::string passwordFrom(const Options& options, const std::string& prompt) {
  if (const auto given = options.value('p')) return *given;
  if (::isatty(STDIN_FILENO) != 0) {
    const char* typed = ::getpass(prompt.c_str());
    return typed == nullptr ? "" : typed;
  }
  std::string line;
  std::getline(std::cin, line);
  return line;
}

// Commands that change nothing here still tell a keychain that is not there.
int acceptFor(const std::optional<Options>& options, std::string_view call) {
  if (!options || options->operands().size() > 1) return kUsage;
  int status = kSuccess;
  existingKeychain(options->operands(), call, &status);
  return status;
}

}  // namespace

int createKeychain(const Arguments& arguments) {
  const auto options = Options::parse(arguments, "p:P");
  if (!options || options->operands().empty()) return kUsage;
  for (const std::string& name : options->operands()) {
    const std::string path = keychain::resolveKeychain(name);
    const std::string call = fmt::format("SecKeychainCreate {}", name);
    if (itemExistsNoFollow(path)) return reportStatus(call, OsStatus::kDuplicateKeychain);
    const std::string password = passwordFrom(*options, "password for new keychain: ");
    ErrorText error;
    switch (keychain::createKeychain(path, password, &error)) {
      case keychain::CreateResult::kCreated:
        break;
      case keychain::CreateResult::kExists:
        return reportStatus(call, OsStatus::kDuplicateKeychain);
      case keychain::CreateResult::kFailed:
        return reportFailure(fmt::format("{}: {}", call, error.text()));
    }
  }
  return kSuccess;
}

int deleteKeychain(const Arguments& arguments) {
  constexpr std::string_view kCall = "SecKeychainDelete";
  const auto options = Options::parse(arguments, "");
  if (!options || options->operands().empty()) return kUsage;
  int status = kSuccess;
  for (const std::string& name : options->operands()) {
    const auto path = existingKeychain({name}, kCall, &status);
    ErrorText error;
    if (path && !keychain::deleteKeychain(*path, &error)) {
      status = reportFailure(fmt::format("{}: {}: {}", kCall, *path, error.text()));
    }
  }
  return status;
}

int lockKeychain(const Arguments& arguments) {
  const auto options = Options::parse(arguments, "a");
  if (options && options->has('a') && options->operands().empty()) return kSuccess;
  return acceptFor(options, "SecKeychainLock");
}

int unlockKeychain(const Arguments& arguments) {
  const auto options = Options::parse(arguments, "up:");
  if (!options || options->operands().size() > 1) return kUsage;
  const std::string name =
      options->operands().empty() ? keychain::defaultKeychain() : options->operands().front();
  const std::string call = fmt::format("SecKeychainUnlock {}", name);
  int status = kSuccess;
  const auto path = existingKeychain(options->operands(), call, &status);
  if (!path || options->has('u')) return status;
  const std::string password = passwordFrom(*options, fmt::format("password to unlock {}: ", name));
  return keychain::checkPassword(*path, password) ? kSuccess
                                                  : reportStatus(call, OsStatus::kAuthFailed);
}

int setKeychainSettings(const Arguments& arguments) {
  return acceptFor(Options::parse(arguments, "lut:"), "SecKeychainSetSettings");
}

int showKeychainInfo(const Arguments& arguments) {
  const auto options = Options::parse(arguments, "");
  const int status = acceptFor(options, "SecKeychainCopySettings");
  if (status != kSuccess) return status;
  const std::string path = options->operands().empty()
                               ? keychain::defaultKeychain()
                               : keychain::resolveKeychain(options->operands().front());
  printError(fmt::format("Keychain \"{}\" no-timeout\n", path));
  return kSuccess;
}

int setKeyPartitionList(const Arguments& arguments) {
  const auto options = Options::parse(arguments, "a:c:D:dej:k:l:rS:st:uvw");
  const int status = acceptFor(options, "SecItemCopyMatching");
  if (status != kSuccess) return status;
  const std::string path = options->operands().empty()
                               ? keychain::defaultKeychain()
                               : keychain::resolveKeychain(options->operands().front());
  if (const auto password = options->value('k');
      password && !keychain::checkPassword(path, *password)) {
    return reportStatus("SecKeychainItemSetAccessWithPassword", OsStatus::kAuthFailed);
  }
  const auto opened = keychain::Keychain::open(path);
  if (!opened || opened->keys().empty()) {
    return reportStatus("SecItemCopyMatching", OsStatus::kItemNotFound);
  }
  return kSuccess;
}

}  // namespace tovrek::security
