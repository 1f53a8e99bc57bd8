#include "companions/security/security.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "companions/security/commands.h"
#include "companions/security/status.h"
#include "log/SystemLog.h"

namespace tovrek::security {

namespace {

struct Entry {
  std::string_view name;
  int (*run)(const Arguments&);
  std::string_view summary;
  std::string_view usage;
};

constexpr std::array<Entry, 13> kCommands = {{
    {"list-keychains", listKeychains, "Display or manipulate the keychain search list.",
     "[-d user|system|common|dynamic] [-s [keychain...]]"},
    {"default-keychain", defaultKeychain, "Display or set the default keychain.",
     "[-d user|system|common|dynamic] [-s [keychain]]"},
    {"create-keychain", createKeychain, "Create keychains.", "[-p password] keychain..."},
    {"delete-keychain", deleteKeychain, "Delete keychains and forget them.", "keychain..."},
    {"lock-keychain", lockKeychain, "Accepted; keychains of this host do not lock.",
     "[-a | keychain]"},
    {"unlock-keychain", unlockKeychain, "Check a keychain's password.",
     "[-u] [-p password] [keychain]"},
    {"set-keychain-settings", setKeychainSettings, "Accepted; keychains of this host do not lock.",
     "[-lu] [-t timeout] [keychain]"},
    {"set-key-partition-list", setKeyPartitionList,
     "Accepted; file modes guard the keys of this host.",
     "[-S partition-list] [-k password] [-adDejlrstuvw ...] [keychain]"},
    {"show-keychain-info", showKeychainInfo, "Show the settings of a keychain.", "[keychain]"},
    {"find-identity", findIdentity, "Find certificates with their private keys.",
     "[-v] [-p policy] [-s string] [keychain...]"},
    {"find-certificate", findCertificate, "Find certificates.",
     "[-a] [-c name] [-e address] [-p] [-Z] [keychain...]"},
    {"import", importItems, "Import certificates and keys into a keychain.",
     "file [-k keychain] [-t type] [-f format] [-P passphrase] [-A] [-T application] [-x]"},
    {"cms", cms, "Print the content of a signed message.",
     "-D [-i file] [-o file] [-k keychain] [-u usage] [-n] [-c detached-content]"},
}};

const Entry* commandNamed(std::string_view name) {
  const auto found = std::ranges::find(kCommands, name, &Entry::name);
  return found == kCommands.end() ? nullptr : &*found;
}

std::string usageOf(const Entry& entry) {
  return fmt::format("Usage: {} {}\n        {}\n", entry.name, entry.usage, entry.summary);
}

std::string programUsage() {
  std::string text = "Usage: security [-h] [-q] [-v] command [arguments]\nCommands are:\n";
  text += fmt::format("    {:<26}{}\n", "help", "Show all commands, or how one is used.");
  for (const Entry& entry : kCommands) {
    text += fmt::format("    {:<26}{}\n", entry.name, entry.summary);
  }
  return text;
}

int unknownCommand(std::string_view name) {
  return reportFailure(fmt::format("unknown command \"{}\"", name));
}

int help(const Arguments& names) {
  if (names.empty()) {
    printOut(programUsage());
    return kSuccess;
  }
  for (const std::string& name : names) {
    const Entry* entry = commandNamed(name);
    if (entry == nullptr) return unknownCommand(name);
    printOut(usageOf(*entry));
  }
  return kSuccess;
}

}  // namespace

int runSecurity(const std::vector<std::string>& arguments) {
  size_t at = 0;
  for (; at < arguments.size() && arguments[at].starts_with("-"); ++at) {
    const std::string& option = arguments[at];
    if (option == "-h" || option == "--help") return help({});
    if (option != "-q" && option != "-v") break;
  }
  if (at == arguments.size() || arguments[at].starts_with("-")) {
    printError(programUsage());
    return kUsage;
  }
  const std::string& name = arguments[at];
  const Arguments rest(arguments.begin() + static_cast<std::ptrdiff_t>(at) + 1, arguments.end());
  if (name == "help") return help(rest);
  const Entry* entry = commandNamed(name);
  if (entry == nullptr) return unknownCommand(name);
  const int status = entry->run(rest);
  if (status == kUsage) printError(usageOf(*entry));
  return status;
}

}  // namespace tovrek::security
