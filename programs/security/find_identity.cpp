#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "keychain/identities.h"
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

void printList(const std::vector<Identity>& identities, bool validOnly, const Streams& streams) {
  int count = 0;
  for (const Identity& identity : identities) {
    const bool valid = keychain::isValidNow(identity.leaf);
    if (validOnly && !valid) continue;
    streams.out(fmt::format("{:3}) {} \"{}\"{}\n", ++count, upperCase(identity.leaf.sha1Hex()),
                            identity.leaf.inferredLabel(),
                            valid ? "" : " (CSSMERR_TP_CERT_EXPIRED)"));
  }
  streams.out(fmt::format("     {} {}identities found\n", count, validOnly ? "valid " : ""));
}

}  // namespace

int findIdentity(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "vp:s:");
  if (!options) return kUsage;
  const auto policy =
      std::ranges::find(kPolicies, options->value('p').value_or("basic"), &Policy::name);
  if (policy == kPolicies.end()) return kUsage;
  int status = kSuccess;
  const auto keychains =
      chosenKeychains(options->operands(), "SecIdentitySearchCreate", &status, streams);
  if (!keychains) return status;

  const std::vector<Identity> identities = identitiesFor(*keychains, *policy);
  if (!options->has('v')) {
    streams.out(fmt::format("\nPolicy: {}\n  Matching identities\n", policy->title));
    printList(identities, false, streams);
    streams.out("\n  Valid identities only\n");
  }
  printList(identities, true, streams);
  return kSuccess;
}

}  // namespace tovrek::security
