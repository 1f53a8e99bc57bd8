// Deleting certificates and identities. The wording is
// unverified: no output of the original was at hand.
#include <fmt/format.h>

#include "keychain/removal.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/item_search.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

struct Kind {
  std::string_view name;
  bool withKey;
};

const Certificate& certificateOf(const Certificate& item) {
  return item;
}
const Certificate& certificateOf(const keychain::Identity& item) {
  return item.leaf;
}

// Nothing goes unless exactly one item is meant.
template <class T>
int deleteOne(const std::vector<Located<T>>& found, std::string_view wanted, const Kind& kind,
              const Streams& streams) {
  if (found.empty()) {
    return reportFailure(fmt::format("Unable to delete {} matching \"{}\"", kind.name, wanted),
                         streams);
  }
  if (found.size() > 1) {
    return reportFailure(
        fmt::format("\"{}\" is ambiguous, matches more than one {}", wanted, kind.name), streams);
  }
  ErrorText error;
  if (keychain::removeFromKeychain(found[0].keychain, certificateOf(found[0].item), kind.withKey,
                                   &error)) {
    return kSuccess;
  }
  return reportFailure(fmt::format("SecKeychainItemDelete: {}", error.text()), streams);
}

int deleteItem(const Words& words, const Kind& kind, const Streams& streams) {
  // -t, for trust settings, has nothing to delete here.
  const auto options = Options::parse(words, "c:Z:t");
  if (!options || !(options->has('c') || options->has('Z'))) return kUsage;
  int status = kSuccess;
  const auto keychains = chosenKeychains(options->operands(), "SecKeychainOpen", &status, streams);
  if (!keychains) return status;
  const auto name = options->value('c');
  const auto digest = options->value('Z');
  const std::string wanted = name ? *name : *digest;
  return kind.withKey ? deleteOne(identitiesBy(*keychains, name, digest), wanted, kind, streams)
                      : deleteOne(certificatesBy(*keychains, name, digest), wanted, kind, streams);
}

}  // namespace

int deleteCertificate(const Words& words, const Streams& streams) {
  return deleteItem(words, {"certificate", false}, streams);
}

int deleteIdentity(const Words& words, const Streams& streams) {
  return deleteItem(words, {"identity", true}, streams);
}

}  // namespace tovrek::security
