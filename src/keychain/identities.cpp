#include "keychain/identities.h"

#include <fmt/format.h>
#include <fmt/ranges.h>
#include <openssl/x509.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "formats/authorities.h"
#include "formats/hex.h"
#include "formats/openssl_owners.h"
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
  std::vector<std::string> searched;
  std::string problems;
  for (const Keychain& keychain : keychains) {
    searched.push_back(keychain.path());
    for (const std::string& problem : keychain.problems()) problems += " " + problem;
  }
  return failure(Lookup::kNotFound, name, "no identity found",
                 searched.empty()
                     ? "No keychain was searched."
                     : fmt::format("Searched: {}.{}", fmt::join(searched, ", "), problems));
}

// Where both have the same name, their digests tell them apart.
LookupResult ambiguous(const std::vector<Candidate>& found, std::string_view name) {
  const Certificate& first = found[0].identity.leaf;
  const Certificate& second = found[1].identity.leaf;
  std::string detail;
  if (nameOf(first) == nameOf(second)) {
    const auto described = [](const Certificate& certificate) {
      return fmt::format("{}, valid until {}", certificate.sha1Hex(),
                         dateDescription(certificate.notAfter()));
    };
    detail = fmt::format("Give the digest of one of them in place of the name: {}; {}",
                         described(first), described(second));
  }
  return failure(Lookup::kAmbiguous, name,
                 fmt::format("ambiguous (matches \"{}\" and \"{}\" in {})", nameOf(first),
                             nameOf(second), found[1].keychain),
                 std::move(detail));
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

// "C = US, O = ..., CN = ..." of a name in DER.
std::string nameText(std::string_view der) {
  using Owner = std::unique_ptr<X509_NAME, Freer<X509_NAME_free>>;
  const unsigned char* at = asBytes(der);
  const Owner name(d2i_X509_NAME(nullptr, &at, static_cast<long>(der.size())));
  const BioOwner text(BIO_new(BIO_s_mem()));
  constexpr unsigned long kUtf8 =
      XN_FLAG_ONELINE & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB);
  if (!name || X509_NAME_print_ex(text.get(), name.get(), 0, kUtf8) < 0) return "";
  return contentsOf(text.get());
}

// What a user has to get hold of.
std::string noIssuer(const Certificate& end, const std::vector<Certificate>& chain) {
  const std::string key = hexUpper(end.authorityKeyIdentifier());
  const std::string issuer = fmt::format("\"{}\"{}", nameText(end.issuerDer()),
                                         key.empty() ? "" : ", key identifier " + key);
  const auto expired = std::ranges::find_if(
      chain, [&](const Certificate& each) { return end.issuerDer() == each.subjectDer(); });
  const std::string what = expired == chain.end() || isValidNow(*expired)
                               ? "no certificate of its issuer is in the keychains or on this host"
                               : "all certificates of its issuer that are there have expired";
  return fmt::format(
      "\"{}\": {}: {}. Get the issuer's certificate from the authority and add it: security import "
      "FILE",
      nameOf(end), what, issuer);
}

bool namesKeyOf(const Certificate& certificate, const Certificate& issuer) {
  return !certificate.authorityKeyIdentifier().empty() &&
         certificate.authorityKeyIdentifier() == issuer.subjectKeyIdentifier();
}

// The host's own certificates are read when the keychains' do not suffice.
class IssuerPool {
 public:
  explicit IssuerPool(const std::vector<Keychain>& keychains) {
    for (const Keychain& keychain : keychains) {
      for (const Certificate& certificate : keychain.certificates()) pool_.push_back(&certificate);
    }
  }
  const Certificate* issuerOf(const Certificate& certificate);

 private:
  const Certificate* best(const Certificate& certificate) const;

  std::vector<const Certificate*> pool_;
  std::optional<std::vector<Certificate>> ofHost_;
};

const Certificate* IssuerPool::issuerOf(const Certificate& certificate) {
  const Certificate* found = best(certificate);
  if (ofHost_ || (found != nullptr && isValidNow(*found))) return found;
  ofHost_ = authorityCertificates();
  for (const Certificate& each : *ofHost_) pool_.push_back(&each);
  return best(certificate);
}

const Certificate* IssuerPool::best(const Certificate& certificate) const {
  const auto rank = [&](const Certificate* candidate) {
    return std::make_tuple(namesKeyOf(certificate, *candidate), isValidNow(*candidate),
                           candidate->notAfter());
  };
  const Certificate* best = nullptr;
  for (const Certificate* candidate : pool_) {
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
  IssuerPool pool(keychains);
  std::vector<Certificate> chain;
  std::set<std::string> used = {leaf.der()};
  const Certificate* current = &leaf;
  while (!current->isSelfIssued()) {
    current = pool.issuerOf(*current);
    // Certificates that issue each other would go round for ever.
    if (current == nullptr || !used.insert(current->der()).second) break;
    chain.push_back(*current);
  }
  return chain;
}

const Certificate* chainEnd(const Certificate& leaf, const std::vector<Certificate>& chain) {
  const Certificate* last = &leaf;
  for (const Certificate& each : chain) {
    if (!each.isSelfIssued() && !isValidNow(each)) return last;
    last = &each;
  }
  return last->isSelfIssued() ? nullptr : last;
}

LookupResult findSigningIdentity(const std::vector<Keychain>& keychains, std::string_view name) {
  std::vector<Candidate> found = candidatesFor(keychains, name);
  if (found.empty()) return noneFound(keychains, name);
  const Certificate refused = found.front().identity.leaf;
  std::erase_if(found, [](const Candidate& candidate) { return !canSign(candidate); });
  if (found.empty()) return cannotSign(refused, name);
  if (found.size() > 1 && name != "*") return ambiguous(found, name);
  Identity chosen = std::move(found.front().identity);
  ErrorText reason;
  chosen.key = chosen.usableKey(&reason);
  if (!chosen.key) {
    return failure(Lookup::kKeyNotUsable, name, "errSecInternalComponent",
                   std::string(reason.text()));
  }
  chosen.chain = completeChain(keychains, chosen.leaf);
  if (const Certificate* end = chainEnd(chosen.leaf, chosen.chain)) {
    return {Lookup::kNoChain, std::nullopt, chosen.leaf.signerName(), noIssuer(*end, chosen.chain)};
  }
  return {Lookup::kFound, std::move(chosen), {}, {}};
}

}  // namespace tovrek::keychain
