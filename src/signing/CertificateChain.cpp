#include "signing/CertificateChain.h"

#include <algorithm>
#include <cstdlib>

#include "formats/authorities.h"
#include "host/clock.h"
#include "host/paths.h"

namespace tovrek::signing {
namespace {

// "Apple Root CA" and "Apple Root CA - G3".
constexpr std::string_view kAppleRootsSha1[] = {"611e5b662c593a08ff58d14ae22452d198df6c60",
                                                "b52cb02fd567e0359fe8fa4d4c41037970fe01b0"};
constexpr size_t kLongestChain = 16;

// Marks of leaves that belong to a team: development, iOS distribution, Mac development, Mac
// distribution, Developer ID.
constexpr const char* kTeamLeafOids[] = {"1.2.840.113635.100.6.1.2", "1.2.840.113635.100.6.1.4",
                                         "1.2.840.113635.100.6.1.7", "1.2.840.113635.100.6.1.12",
                                         "1.2.840.113635.100.6.1.13"};

bool isTrustedRoot(const Certificate& certificate) {
  const std::string sha1 = certificate.sha1Hex();
  if (std::ranges::find(kAppleRootsSha1, sha1) != std::end(kAppleRootsSha1)) return true;
  const char* own = std::getenv("TOVREK_TRUSTED_ROOT_SHA1");
  if (own != nullptr && toLowerAscii(own) == sha1) return true;
  return std::ranges::any_of(
      furtherRoots(), [&](const Certificate& root) { return root.der() == certificate.der(); });
}

// Generations of one authority can have one key: then the one that is valid now and ends last.
const Certificate* issuerOf(const Certificate& certificate,
                            const std::vector<Certificate>& candidates) {
  const double now = currentTime();
  const auto rank = [now](const Certificate& candidate) {
    const bool valid = candidate.notBefore() <= now && now <= candidate.notAfter();
    return std::make_pair(valid, candidate.notAfter());
  };
  const Certificate* best = nullptr;
  for (const Certificate& candidate : candidates) {
    const bool better = best == nullptr || rank(candidate) > rank(*best);
    if (better && certificate.isIssuedBy(candidate)) best = &candidate;
  }
  return best;
}

}  // namespace

CertificateChain CertificateChain::build(const Certificate& leaf,
                                         const std::vector<Certificate>& others) {
  std::vector<Certificate> chain{leaf};
  while (chain.size() < kLongestChain && !chain.back().isSelfSigned()) {
    const auto issuer = std::find_if(
        others.begin(), others.end(),
        [&](const Certificate& candidate) { return chain.back().isIssuedBy(candidate); });
    if (issuer == others.end()) break;
    chain.push_back(*issuer);
  }
  return CertificateChain(std::move(chain));
}

CertificateChain CertificateChain::completed() const {
  if (empty() || certificates_.back().isSelfIssued()) return *this;
  const std::vector<Certificate> known = authorityCertificates();
  std::vector<Certificate> chain = certificates_;
  while (chain.size() < kLongestChain && !chain.back().isSelfIssued()) {
    const Certificate* issuer = issuerOf(chain.back(), known);
    if (issuer == nullptr) break;
    chain.push_back(*issuer);
  }
  return CertificateChain(std::move(chain));
}

const Certificate* CertificateChain::at(int slot) const {
  const auto count = static_cast<int>(certificates_.size());
  const int index = slot < 0 ? count + slot : slot;
  if (index < 0 || index >= count) return nullptr;
  return &certificates_[static_cast<size_t>(index)];
}

bool CertificateChain::isApples() const {
  return !empty() && isTrustedRoot(certificates_.back());
}

bool CertificateChain::isAppleDevelopment() const {
  return size() == 3 && isApples() && certificates_[1].hasExtension(kWwdrIntermediateOid);
}

std::string CertificateChain::teamId() const {
  if (!isApples()) return "";
  const bool marked = std::any_of(std::begin(kTeamLeafOids), std::end(kTeamLeafOids),
                                  [&](const char* oid) { return leaf().hasExtension(oid); });
  return marked ? leaf().organizationalUnit().value_or("") : "";
}

}  // namespace tovrek::signing
