#include "programs/security/security.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>

#include "programs/security/commands.h"
#include "programs/security/interactive.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

struct Entry {
  std::string_view name;
  Command run;
  std::string_view summary;
  std::string_view usage;
};

constexpr std::array<Entry, 22> kCommands = {{
    {"list-keychains", listKeychains, "Display or manipulate the keychain search list.",
     "[-d user|system|common|dynamic] [-s [keychain...]]"},
    {"default-keychain", defaultKeychain, "Display or set the default keychain.",
     "[-d user|system|common|dynamic] [-s [keychain]]"},
    {"login-keychain", loginKeychain, "Display the login keychain.",
     "[-d user|system|common|dynamic]"},
    {"create-keychain", createKeychain, "Create keychains.", "[-p password] keychain..."},
    {"delete-keychain", deleteKeychain, "Delete keychains and forget them.", "keychain..."},
    {"lock-keychain", lockKeychain, "Forget the password of a keychain with encrypted keys.",
     "[-a | keychain]"},
    {"unlock-keychain", unlockKeychain,
     "Check a keychain's password; remember it for encrypted keys.",
     "[-u] [-p password] [keychain]"},
    {"set-keychain-settings", setKeychainSettings, "Set when a keychain locks by itself.",
     "[-lu] [-t seconds] [keychain]"},
    {"set-keychain-password", setKeychainPassword, "Change the password of a keychain.",
     "[-o old-password] [-p new-password] [keychain]"},
    {"set-key-partition-list", setKeyPartitionList,
     "Accepted; file modes guard the keys of this host.",
     "[-S partition-list] [-k password] [-adDejlrstuvw ...] [keychain]"},
    {"show-keychain-info", showKeychainInfo, "Show the settings of a keychain.", "[keychain]"},
    {"find-identity", findIdentity, "Find certificates with their private keys.",
     "[-v] [-p policy] [-s string] [keychain...]"},
    {"find-certificate", findCertificate, "Find certificates.",
     "[-a] [-c name] [-e address] [-m] [-p] [-Z] [keychain...]"},
    {"delete-certificate", deleteCertificate, "Delete a certificate.",
     "-c name | -Z hash [-t] [keychain...]"},
    {"delete-identity", deleteIdentity, "Delete a certificate and its private key.",
     "-c name | -Z hash [-t] [keychain...]"},
    {"dump-keychain", dumpKeychain, "Show the attributes of all items.", "[-adir] [keychain...]"},
    {"add-certificates", addCertificates, "Add certificates to a keychain.",
     "[-k keychain] file..."},
    {"add-trusted-cert", addTrustedCertificate,
     "Add certificates to a keychain; trust settings are accepted.",
     "[-d] [-r result] [-p policy] [-k keychain] file"},
    {"verify-cert", verifyCertificate, "Verify the chain of a certificate.",
     "-c file [-c file]... [-r root-file]... [-p policy] [-k keychain]... [-nLlq]"},
    {"import", importItems, "Import certificates and keys into a keychain.",
     "file | pkcs11:URI [-k keychain] [-t type] [-f format] [-P passphrase] [-A] [-T application] "
     "[-x]"},
    {"export", exportItems, "Export certificates and keys from a keychain.",
     "[-k keychain] [-t certs|privKeys|allKeys|identities|all] "
     "[-f pkcs12|pemseq|pkcs7|pkcs8|x509]\n               [-p] [-P passphrase] [-o file]"},
    {"cms", cms, "Print the content of a signed message, or sign one.",
     "-D [-i file] [-o file] [-k keychain] [-u usage] [-n] [-c detached-content]\n"
     "       cms -S -N name | -Z key-id [-i file] [-o file] [-k keychain] [-H digest] [-GPT]"},
}};

// A command may be cut short as long as it stays the only one: "list-key" for "list-keychains".
const Entry* commandNamed(std::string_view name) {
  const auto exact = std::ranges::find(kCommands, name, &Entry::name);
  if (exact != kCommands.end()) return &*exact;
  const Entry* found = nullptr;
  for (const Entry& entry : kCommands) {
    if (name.empty() || !entry.name.starts_with(name)) continue;
    if (found != nullptr) return nullptr;
    found = &entry;
  }
  return found;
}

std::string usageOf(const Entry& entry) {
  return fmt::format("Usage: {} {}\n        {}\n", entry.name, entry.usage, entry.summary);
}

std::string programUsage() {
  std::string text = "Usage: security [-hilqv] [-p prompt] [command [arguments]]\nCommands are:\n";
  text += fmt::format("    {:<26}{}\n", "help", "Show all commands, or how one is used.");
  for (const Entry& entry : kCommands) {
    text += fmt::format("    {:<26}{}\n", entry.name, entry.summary);
  }
  return text;
}

int unknownCommand(std::string_view name, const Streams& streams) {
  return reportFailure(fmt::format("unknown command \"{}\"", name), streams);
}

int help(const Words& names, const Streams& streams) {
  if (names.empty()) {
    streams.out(programUsage());
    return kSuccess;
  }
  for (const std::string& name : names) {
    const Entry* entry = commandNamed(name);
    if (entry == nullptr) return unknownCommand(name, streams);
    streams.out(usageOf(*entry));
  }
  return kSuccess;
}

int runCommand(const Words& words, const Streams& streams) {
  const std::string& name = words.front();
  const Words rest(words.begin() + 1, words.end());
  if (name == "help") return help(rest, streams);
  const Entry* entry = commandNamed(name);
  if (entry == nullptr) return unknownCommand(name, streams);
  if (rest.size() == 1 && rest.front() == "--help") {
    streams.out(usageOf(*entry));
    return kSuccess;
  }
  const int status = entry->run(rest, streams);
  if (status == kUsage) streams.error(usageOf(*entry));
  return status;
}

int wrongUsage(const Streams& streams) {
  streams.error(programUsage());
  return kUsage;
}

}  // namespace

int run(const Arguments& arguments, const Streams& streams) {
  const Words& words = arguments.words;
  bool interactive = false;
  std::string prompt = "security> ";
  size_t at = 0;
  for (; at < words.size() && words[at].starts_with("-"); ++at) {
    const std::string& option = words[at];
    if (option == "-h" || option == "--help") return help({}, streams);
    if (option == "-i") {
      interactive = true;
    } else if (option == "-p" && at + 1 < words.size()) {
      interactive = true;
      prompt = words[++at];
    } else if (option != "-q" && option != "-v" && option != "-l") {
      return wrongUsage(streams);
    }
  }
  if (interactive && at == words.size()) return runLines(prompt, runCommand, streams);
  if (at == words.size()) return wrongUsage(streams);
  return runCommand({words.begin() + static_cast<std::ptrdiff_t>(at), words.end()}, streams);
}

}  // namespace tovrek::security
