// security find-identity: certificates with a key, first all that match, then those that may sign.
#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "keychain/identities.h"
#include "keychain/locations.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

using keychain::Identity;

struct Policy {
  std::string_view name, title;
  bool signsCode = false;
};
constexpr std::array<Policy, 9> kPolicies = {{
    {"basic", "X.509 Basic"},
    {"codesigning", "Code Signing", true},
    {"ssl-client", "SSL (client)"},
    {"ssl-server", "SSL (server)"},
    {"smime", "S/MIME"},
    {"eap", "EAP"},
    {"ipsec", "IPsec"},
    {"macappstore", "Mac App Store"},
    {"appleID", "Apple ID"},
}};

// One certificate in two keychains is one identity.
std::vector<Identity> identitiesFor(const std::vector<keychain::Keychain>& keychains,
                                    const Policy& policy) {
  std::vector<Identity> result;
  for (const auto& each : keychains) {
    for (Identity& identity : each.identities()) {
      const bool known = std::ranges::any_of(
          result, [&](const Identity& listed) { return listed.leaf.der() == identity.leaf.der(); });
      if (known || (policy.signsCode && !identity.leaf.allowsCodeSigning())) continue;
      result.push_back(std::move(identity));
    }
  }
  return result;
}

std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(), [](char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
  });
  return text;
}

// An identity and what keeps it from being valid, in the original's words; empty for nothing.
struct Judged {
  Identity identity;
  std::string_view fault;
};

std::vector<Judged> judged(std::vector<Identity> identities,
                           const std::vector<keychain::Keychain>& keychains) {
  std::vector<Judged> result;
  for (Identity& each : identities) {
    const Certificate& leaf = each.leaf;
    std::string_view fault;
    if (!keychain::isValidNow(leaf)) {
      fault = " (CSSMERR_TP_CERT_EXPIRED)";
    } else if (keychain::chainEnd(leaf, keychain::completeChain(keychains, leaf)) != nullptr) {
      fault = " (CSSMERR_TP_NOT_TRUSTED)";
    }
    result.push_back({std::move(each), fault});
  }
  return result;
}

void printList(const std::vector<Judged>& identities, bool validOnly, const Streams& streams) {
  int count = 0;
  for (const auto& [identity, fault] : identities) {
    if (validOnly && !fault.empty()) continue;
    streams.out(fmt::format("{:3}) {} \"{}\"{}\n", ++count, upperCase(identity.leaf.sha1Hex()),
                            identity.leaf.inferredLabel(), fault));
  }
  streams.out(fmt::format("     {} {}identities found\n", count, validOnly ? "valid " : ""));
}

}  // namespace

int findIdentity(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "vp:s:");
  if (!options) return kUsage;
  const auto policy =
      std::ranges::find(kPolicies, options->value('p').value_or("basic"), &Policy::name);
  if (policy == kPolicies.end()) {
    return withAdvice(kUsage, fmt::format("unknown policy \"{}\"", *options->value('p')), streams);
  }
  int status = kSuccess;
  const auto keychains =
      chosenKeychains(options->operands(), "SecIdentitySearchCreate", &status, streams);
  if (!keychains) return status;

  // Issuers are looked for where codesign does, not only in the keychains that were named.
  std::vector<keychain::Keychain> issuers = keychain::openSearchList();
  issuers.insert(issuers.begin(), keychains->begin(), keychains->end());
  const std::vector<Judged> identities = judged(identitiesFor(*keychains, *policy), issuers);
  if (!options->has('v')) {
    streams.out(fmt::format("\nPolicy: {}\n  Matching identities\n", policy->title));
    printList(identities, false, streams);
    streams.out("\n  Valid identities only\n");
  }
  printList(identities, true, streams);
  return status;
}

}  // namespace tovrek::security
