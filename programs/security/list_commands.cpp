// Which keychains are searched, and which is the default.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "keychain/locations.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

// This host has lists for the user alone; the other domains are known and empty.
constexpr std::array<std::string_view, 4> kDomains = {"user", "system", "common", "dynamic"};

bool knownDomain(const Options& options) {
  return std::ranges::find(kDomains, options.value('d').value_or("user")) != kDomains.end();
}

bool isUserDomain(const Options& options) {
  return options.value('d').value_or("user") == "user";
}

void printPath(std::string_view path, const Streams& streams) {
  streams.out(fmt::format("    \"{}\"\n", path));
}

int foreignDomain(const Streams& streams) {
  return reportFailure("only the user domain can be changed on this host", streams);
}

}  // namespace

int listKeychains(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "d:s");
  if (!options || !knownDomain(*options)) return kUsage;
  if (!options->has('s')) {
    if (!options->operands().empty()) return kUsage;
    if (isUserDomain(*options)) {
      for (const std::string& path : keychain::searchList()) printPath(path, streams);
    }
    return kSuccess;
  }
  if (!isUserDomain(*options)) return foreignDomain(streams);
  std::vector<std::string> paths;
  for (const std::string& name : options->operands()) {
    const std::string path = keychain::resolveKeychain(name);
    if (std::ranges::find(paths, path) == paths.end()) paths.push_back(path);
  }
  ErrorText error;
  if (keychain::setSearchList(paths, &error)) return kSuccess;
  return reportFailure(fmt::format("SecKeychainSetDomainSearchList: {}", error.text()), streams);
}

int defaultKeychain(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "d:s");
  if (!options || !knownDomain(*options) || options->operands().size() > 1) return kUsage;
  if (!options->has('s')) {
    if (!options->operands().empty()) return kUsage;
    if (isUserDomain(*options)) printPath(keychain::defaultKeychain(), streams);
    return kSuccess;
  }
  if (!isUserDomain(*options)) return foreignDomain(streams);
  ErrorText error;
  const bool stored = options->operands().empty()
                          ? keychain::resetDefaultKeychain(&error)
                          : keychain::setDefaultKeychain(
                                keychain::resolveKeychain(options->operands().front()), &error);
  if (stored) return kSuccess;
  return reportFailure(fmt::format("SecKeychainSetDomainDefault: {}", error.text()), streams);
}

// The login keychain of this host is the folder that is the default from the beginning.
int loginKeychain(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "d:s");
  if (!options || !knownDomain(*options) || options->operands().size() > 1) return kUsage;
  if (options->has('s')) return reportFailure("the login keychain cannot be another one", streams);
  if (!options->operands().empty()) return kUsage;
  if (isUserDomain(*options)) printPath(keychain::resolveKeychain("login.keychain"), streams);
  return kSuccess;
}

}  // namespace tovrek::security
