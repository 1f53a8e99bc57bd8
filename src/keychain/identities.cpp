#include "keychain/identities.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "formats/hex.h"
#include "host/clock.h"
#include "host/paths.h"

namespace tovrek::keychain {

namespace {

struct Candidate {
  Identity identity;
  std::string keychain;  // path
};

std::string nameOf(const Certificate& certificate) {
  return certificate.inferredLabel();
}

bool isDigest(std::string_view name) {
  return name.size() == 40 && bytesFromHex(name);
}

bool matches(const Certificate& certificate, std::string_view name) {
  if (name == "*") return true;
  if (isDigest(name)) return equalsIgnoringCase(certificate.sha1Hex(), name);
  return !name.empty() && containsIgnoringCase(nameOf(certificate), name);
}

// Identities that fit the name; only those of exactly that name when there are any.
std::vector<Candidate> candidatesFor(const std::vector<Keychain>& keychains,
                                     std::string_view name) {
  std::vector<Candidate> found;
  std::set<std::string> seen;
  for (const Keychain& keychain : keychains) {
    for (Identity& identity : keychain.identities()) {
      if (!matches(identity.leaf, name) || !seen.insert(identity.leaf.der()).second) continue;
      found.push_back({std::move(identity), keychain.path()});
    }
  }
  const auto exact = [&](const Candidate& candidate) {
    return nameOf(candidate.identity.leaf) == name;
  };
  if (std::ranges::any_of(found, exact)) {
    std::erase_if(found, [&](const Candidate& candidate) { return !exact(candidate); });
  }
  return found;
}

bool canSign(const Candidate& candidate) {
  return isValidNow(candidate.identity.leaf) && candidate.identity.leaf.allowsCodeSigning();
}

LookupResult failure(Lookup outcome, std::string_view name, std::string_view text,
                     std::string detail = {}) {
  return {outcome, std::nullopt, fmt::format("{}: {}", name, text), std::move(detail)};
}

LookupResult noneFound(const std::vector<Keychain>& keychains, std::string_view name) {
  for (const Keychain& keychain : keychains) {
    for (const Certificate& certificate : keychain.certificates()) {
      if (name == "*" || !matches(certificate, name)) continue;
      std::string detail =
          fmt::format("The certificate \"{}\" is in {}, but its private key is not.",
                      nameOf(certificate), keychain.path());
      for (const std::string& problem : keychain.problems()) detail += " " + problem;
      return failure(Lookup::kNoPrivateKey, name, "no identity found", std::move(detail));
    }
  }
  return failure(Lookup::kNotFound, name, "no identity found");
}

LookupResult cannotSign(const Certificate& certificate, std::string_view name) {
  constexpr std::string_view kText = "this identity cannot be used for signing code";
  if (!isValidNow(certificate)) {
    return failure(Lookup::kExpired, name, kText,
                   fmt::format("The certificate \"{}\" is valid from {} to {}.",
                               nameOf(certificate), dateDescription(certificate.notBefore()),
                               dateDescription(certificate.notAfter())));
  }
  return failure(
      Lookup::kNotForSigning, name, kText,
      fmt::format("The certificate \"{}\" is not meant for code signing.", nameOf(certificate)));
}

bool namesKeyOf(const Certificate& certificate, const Certificate& issuer) {
  return !certificate.authorityKeyIdentifier().empty() &&
         certificate.authorityKeyIdentifier() == issuer.subjectKeyIdentifier();
}

const Certificate* issuerOf(const Certificate& certificate,
                            const std::vector<const Certificate*>& pool) {
  const auto rank = [&](const Certificate* candidate) {
    return std::make_tuple(namesKeyOf(certificate, *candidate), isValidNow(*candidate),
                           candidate->notAfter());
  };
  const Certificate* best = nullptr;
  for (const Certificate* candidate : pool) {
    if (candidate->subjectDer() != certificate.issuerDer() ||
        (best != nullptr && rank(candidate) <= rank(best)) || !certificate.isSignedBy(*candidate)) {
      continue;
    }
    best = candidate;
  }
  return best;
}

}  // namespace

bool isValidNow(const Certificate& certificate) {
  const double now = currentTime();
  return certificate.notBefore() <= now && now <= certificate.notAfter();
}

std::vector<Certificate> completeChain(const std::vector<Keychain>& keychains,
                                       const Certificate& leaf) {
  std::vector<const Certificate*> pool;
  for (const Keychain& keychain : keychains) {
    for (const Certificate& certificate : keychain.certificates()) pool.push_back(&certificate);
  }
  std::vector<Certificate> chain;
  std::set<std::string> used = {leaf.der()};
  const Certificate* current = &leaf;
  while (!current->isSelfIssued()) {
    current = issuerOf(*current, pool);
    // Certificates that issue each other would go round for ever.
    if (current == nullptr || !used.insert(current->der()).second) break;
    chain.push_back(*current);
  }
  return chain;
}

LookupResult findSigningIdentity(const std::vector<Keychain>& keychains, std::string_view name) {
  std::vector<Candidate> found = candidatesFor(keychains, name);
  if (found.empty()) return noneFound(keychains, name);
  const Certificate refused = found.front().identity.leaf;
  std::erase_if(found, [](const Candidate& candidate) { return !canSign(candidate); });
  if (found.empty()) return cannotSign(refused, name);
  if (found.size() > 1 && name != "*") {
    return failure(
        Lookup::kAmbiguous, name,
        fmt::format("ambiguous (matches \"{}\" and \"{}\" in {})", nameOf(found[0].identity.leaf),
                    nameOf(found[1].identity.leaf), found[1].keychain));
  }
  Identity chosen = std::move(found.front().identity);
  ErrorText reason;
  chosen.key = chosen.usableKey(&reason);
  if (!chosen.key) {
    return failure(Lookup::kKeyNotUsable, name, "errSecInternalComponent",
                   std::string(reason.text()));
  }
  chosen.chain = completeChain(keychains, chosen.leaf);
  return {Lookup::kFound, std::move(chosen), {}, {}};
}

}  // namespace tovrek::keychain
