// Settings of keychains, and who may use their keys.
#include <fmt/format.h>

#include <charconv>

#include "host/files.h"
#include "keychain/locations.h"
#include "keychain/settings.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

std::optional<int> secondsIn(const std::string& text) {
  int seconds = 0;
  const char* end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, seconds);
  return code == std::errc() && stop == end && seconds >= 0 ? std::optional(seconds) : std::nullopt;
}

}  // namespace

int setKeychainSettings(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "lut:");
  if (!options || options->operands().size() > 1) return kUsage;
  std::optional<int> timeout;
  if (const auto text = options->value('t')) {
    timeout = secondsIn(*text);
    if (!timeout) return kUsage;
  }
  constexpr std::string_view kCall = "SecKeychainSetSettings";
  int status = kSuccess;
  const auto path = existingKeychain(options->operands(), kCall, &status, streams);
  // A single file has no place for settings, and nothing in it locks.
  if (!path || !isDirectory(*path)) return status;
  keychain::Settings settings = keychain::readSettings(*path);
  settings.lockOnSleep = options->has('l');
  settings.timeout = timeout;
  ErrorText error;
  if (keychain::writeSettings(*path, settings, &error)) return kSuccess;
  return reportFailure(fmt::format("{}: {}: {}", kCall, *path, error.text()), streams);
}

int showKeychainInfo(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "");
  if (!options || options->operands().size() > 1) return kUsage;
  int status = kSuccess;
  const auto path =
      existingKeychain(options->operands(), "SecKeychainCopySettings", &status, streams);
  if (!path) return status;
  const keychain::Settings settings = keychain::readSettings(*path);
  streams.error(fmt::format(
      "Keychain \"{}\"{}{}\n", *path, settings.lockOnSleep ? " lock-on-sleep" : "",
      settings.timeout ? fmt::format(" timeout={}s", *settings.timeout) : " no-timeout"));
  return kSuccess;
}

int setKeyPartitionList(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "a:c:D:dej:k:l:rS:st:uvw");
  if (!options || options->operands().size() > 1) return kUsage;
  int status = kSuccess;
  const auto path = existingKeychain(options->operands(), "SecItemCopyMatching", &status, streams);
  if (!path) return status;
  if (const auto password = options->value('k');
      password && !keychain::checkPassword(*path, *password)) {
    return reportStatus("SecKeychainItemSetAccessWithPassword", OsStatus::kAuthFailed, streams);
  }
  const auto opened = keychain::Keychain::open(*path);
  if (!opened || !opened->hasKeys()) {
    return reportStatus("SecItemCopyMatching", OsStatus::kItemNotFound, streams);
  }
  return kSuccess;
}

}  // namespace tovrek::security
