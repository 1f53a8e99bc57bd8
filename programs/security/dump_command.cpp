// All items of keychains as text. The wording is
// unverified: no output of the original was at hand.
#include <fmt/format.h>

#include "programs/security/Options.h"
#include "programs/security/attribute_dump.h"
#include "programs/security/commands.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

// A key bears the name of its certificate, where that is there.
void dumpKey(const keychain::Keychain& keychain, const std::string& id, const Streams& streams) {
  std::string name = "Imported Private Key";
  for (const Certificate& certificate : keychain.certificates()) {
    if (keychain::publicKeyId(certificate) == id) name = certificate.inferredLabel();
  }
  streams.out(privateKeyDump(id, name, keychain.path()));
}

}  // namespace

int dumpKeychain(const Words& words, const Streams& streams) {
  // -a, -d, -i and -r ask for access lists and secrets: there are none, and none are shown.
  const auto options = Options::parse(words, "adir");
  if (!options) return kUsage;
  int status = kSuccess;
  const auto keychains = chosenKeychains(options->operands(), "SecKeychainOpen", &status, streams);
  if (!keychains) return status;
  for (const auto& each : *keychains) {
    for (const auto& key : each.keys()) dumpKey(each, keychain::publicKeyId(key), streams);
    for (const auto& key : each.deferredKeys()) dumpKey(each, key.id, streams);
    for (const Certificate& certificate : each.certificates()) {
      streams.out(attributeDump(certificate, each.path()));
    }
  }
  return kSuccess;
}

}  // namespace tovrek::security
