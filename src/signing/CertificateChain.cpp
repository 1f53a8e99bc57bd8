#include "signing/CertificateChain.h"

#include <openssl/objects.h>
#include <openssl/x509v3.h>

#include <algorithm>
#include <cstdlib>

#include "formats/Digest.h"
#include "formats/openssl_owners.h"
#include "host/paths.h"
#include "signing/bytes.h"

namespace tovrek::signing {
namespace {

constexpr std::string_view kAppleRootSha1 = "611e5b662c593a08ff58d14ae22452d198df6c60";
constexpr size_t kLongestChain = 16;

// Marks of leaves that belong to a team: development, iOS distribution, Mac development, Mac
// distribution, Developer ID.
constexpr const char* kTeamLeafOids[] = {"1.2.840.113635.100.6.1.2", "1.2.840.113635.100.6.1.4",
                                         "1.2.840.113635.100.6.1.7", "1.2.840.113635.100.6.1.12",
                                         "1.2.840.113635.100.6.1.13"};

bool isTrustedRoot(const CodeCertificate& certificate) {
  const std::string sha1 = hexLower(certificate.sha1());
  if (sha1 == kAppleRootSha1) return true;
  const char* own = std::getenv("TOVREK_TRUSTED_ROOT_SHA1");
  return own != nullptr && toLowerAscii(own) == sha1;
}

}  // namespace

std::optional<CodeCertificate> CodeCertificate::fromDer(std::string_view der) {
  const auto bytes = asBytes(der);
  const auto* at = static_cast<const unsigned char*>(static_cast<const void*>(bytes.data()));
  X509Owner x509(d2i_X509(nullptr, &at, static_cast<long>(bytes.size())));
  if (!x509) {
    ERR_clear_error();
    return std::nullopt;
  }
  CodeCertificate certificate;
  certificate.der_ = der;
  certificate.x509_ = std::move(x509);
  return certificate;
}

CodeCertificate CodeCertificate::of(std::shared_ptr<X509> x509, std::string der) {
  CodeCertificate certificate;
  certificate.der_ = std::move(der);
  certificate.x509_ = std::move(x509);
  return certificate;
}

std::string CodeCertificate::sha1() const {
  return digestOf(DigestAlgorithm::kSha1, der_);
}

std::optional<std::string> CodeCertificate::subject(const char* field) const {
  const X509_NAME* name = X509_get_subject_name(x509());
  const int nid = OBJ_txt2nid(field);
  const int at = nid == NID_undef ? -1 : X509_NAME_get_index_by_NID(name, nid, -1);
  if (at < 0) return std::nullopt;
  unsigned char* utf8 = nullptr;
  const int length =
      ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at)));
  if (length < 0) return std::nullopt;
  std::string value(utf8, utf8 + length);
  OPENSSL_free(utf8);
  return value;
}

bool CodeCertificate::hasExtension(const std::string& oid) const {
  const ObjectOwner object(OBJ_txt2obj(oid.c_str(), 1));
  return object && X509_get_ext_by_OBJ(x509(), object.get(), -1) >= 0;
}

bool CodeCertificate::isSelfSigned() const {
  return isIssuedBy(*this);
}

bool CodeCertificate::isIssuedBy(const CodeCertificate& issuer) const {
  const bool issued = X509_check_issued(issuer.x509(), x509()) == X509_V_OK &&
                      X509_verify(x509(), X509_get0_pubkey(issuer.x509())) == 1;
  ERR_clear_error();
  return issued;
}

std::string CodeCertificate::displayName() const {
  if (const auto name = subject("CN")) return *name;
  return subject("O").value_or("(unknown)");
}

CertificateChain CertificateChain::build(const CodeCertificate& leaf,
                                         const std::vector<CodeCertificate>& others) {
  std::vector<CodeCertificate> chain{leaf};
  while (chain.size() < kLongestChain && !chain.back().isSelfSigned()) {
    const auto issuer = std::find_if(
        others.begin(), others.end(),
        [&](const CodeCertificate& candidate) { return chain.back().isIssuedBy(candidate); });
    if (issuer == others.end()) break;
    chain.push_back(*issuer);
  }
  return CertificateChain(std::move(chain));
}

const CodeCertificate* CertificateChain::at(int slot) const {
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
  return marked ? leaf().subject("OU").value_or("") : "";
}

}  // namespace tovrek::signing
