#include "converter/codesign_commands.h"

namespace tovrek::converter {
namespace {

constexpr char kCodesign[] = "/usr/bin/codesign";

CommandLine keychainOption(const Signer& signer) {
  const auto keychain = signer.keychain.namedKeychain();
  return keychain ? CommandLine{"--keychain", *keychain} : CommandLine{};
}

CommandLine signCommand(const Signer& signer, const std::vector<CommandLine>& rest) {
  CommandLine arguments = {kCodesign, "-f", "-s", signer.certificate};
  for (const CommandLine& part : rest) arguments.insert(arguments.end(), part.begin(), part.end());
  return arguments;
}

}  // namespace

CommandLine signLibraryCommand(const Signer& signer, const std::string& path) {
  return signCommand(signer, {keychainOption(signer), {path}});
}

CommandLine signNestedCodeCommand(const Signer& signer, const std::string& path) {
  return signCommand(signer, {{path}, keychainOption(signer)});
}

CommandLine signBundleCommand(const Signer& signer, const std::string& path,
                              const std::optional<std::string>& entitlementPath,
                              Requirements requirements) {
  const bool keepsRequirements = requirements == Requirements::kKept;
  CommandLine options;
  if (entitlementPath) {
    options = {"--entitlements", *entitlementPath};
    if (keepsRequirements) options.emplace_back("--preserve-metadata=requirements");
  } else {
    options = {keepsRequirements ? "--preserve-metadata=requirements,entitlements"
                                 : "--preserve-metadata=entitlements"};
  }
  return signCommand(signer, {keychainOption(signer), {path}, options});
}

CommandLine saveEntitlementsCommand(const std::string& path, const std::string& target) {
  return {kCodesign, "-d", "--entitlements", ":" + target, path};
}

CommandLine displayTeamCommand(const std::string& path) {
  return {kCodesign, "--display", "--verbose=4", path};
}

CommandLine displayAuthoritiesCommand(const std::string& path) {
  return {kCodesign, "-dvvv", path};
}

}  // namespace tovrek::converter
