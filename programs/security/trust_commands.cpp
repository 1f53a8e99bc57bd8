// Certificates that others vouch for: adding them, and judging a chain.
// The wording is unverified: no output of the original was at hand.
#include <fmt/format.h>
#include <openssl/x509_vfy.h>

#include <algorithm>

#include "formats/authorities.h"
#include "formats/openssl_owners.h"
#include "host/files.h"
#include "keychain/item_files.h"
#include "programs/security/Options.h"
#include "programs/security/commands.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

using keychain::Items;

// The certificates of all files; none, reported, when one of them has none.
std::optional<Items> certificatesIn(const std::vector<std::string>& files, int* status,
                                    const Streams& streams) {
  Items items;
  for (const std::string& file : files) {
    std::string bytes;
    ErrorText error;
    if (!readFile(file, &bytes, &error)) {
      *status =
          reportFailure(fmt::format("Error reading file {}: {}", file, error.text()), streams);
      return std::nullopt;
    }
    const size_t before = items.certificates.size();
    keychain::readItems(bytes, std::nullopt, &items);
    items.keys.clear();
    if (items.certificates.size() == before) {
      *status =
          reportFailure(fmt::format("Error reading file {}: no certificate in it", file), streams);
      return std::nullopt;
    }
  }
  return items;
}

int addTo(const std::optional<std::string>& keychain, const std::vector<std::string>& files,
          std::string_view call, keychain::Keychain::Added* added, const Streams& streams) {
  int status = kSuccess;
  const auto items = certificatesIn(files, &status, streams);
  if (!items) return status;
  auto into = keychainToFill(keychain, call, &status, streams);
  if (!into) return status;
  ErrorText error;
  if (into->add(*items, added, &error)) return kSuccess;
  return reportFailure(fmt::format("{}: {}: {}", call, into->path(), error.text()), streams);
}

// The words after each option of this name.
std::vector<std::string> valuesOf(const Words& words, std::string_view option) {
  std::vector<std::string> values;
  for (size_t i = 0; i + 1 < words.size(); ++i) {
    if (words[i] == option) values.push_back(words[++i]);
  }
  return values;
}

// Where no root is named, every self-signed certificate of the keychains and of this host is
// trusted.
struct Pool {
  StoreOwner roots{X509_STORE_new()};
  CertificateList others{sk_X509_new_null()};

  void trust(const Certificate& certificate) {
    X509_STORE_add_cert(roots.get(), certificate.x509().get());
  }
  void offer(const Certificate& certificate) {
    X509* x509 = certificate.x509().get();
    if (sk_X509_push(others.get(), x509) > 0) X509_up_ref(x509);
  }
};

int chainError(const Certificate& leaf, const Pool& pool) {
  const std::unique_ptr<X509_STORE_CTX, Freer<X509_STORE_CTX_free>> context(X509_STORE_CTX_new());
  if (!context || X509_STORE_CTX_init(context.get(), pool.roots.get(), leaf.x509().get(),
                                      pool.others.get()) != 1) {
    return X509_V_ERR_UNSPECIFIED;
  }
  // Apple marks extensions of its own as critical.
  X509_STORE_CTX_set_flags(context.get(), X509_V_FLAG_IGNORE_CRITICAL);
  const int error =
      X509_verify_cert(context.get()) == 1 ? X509_V_OK : X509_STORE_CTX_get_error(context.get());
  ERR_clear_error();
  return error;
}

std::string_view nameOf(int error) {
  switch (error) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return "CSSMERR_TP_CERT_EXPIRED";
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return "CSSMERR_TP_CERT_NOT_VALID_YET";
    case X509_V_ERR_INVALID_PURPOSE:
      return "CSSMERR_TP_VERIFY_ACTION_FAILED";
    default:
      return "CSSMERR_TP_NOT_TRUSTED";
  }
}

}  // namespace

int addCertificates(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "k:");
  if (!options || options->operands().empty()) return kUsage;
  constexpr std::string_view kCall = "SecCertificateAddToKeychain";
  keychain::Keychain::Added added;
  const int status = addTo(options->value('k'), options->operands(), kCall, &added, streams);
  if (status != kSuccess || added.certificates > 0) return status;
  return reportStatus(kCall, OsStatus::kDuplicateItem, streams);
}

// There is no list of trusted roots on this host: the certificate is where chains are completed.
int addTrustedCertificate(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "dr:p:a:s:e:q:u:k:i:o:D");
  if (!options || options->operands().size() != 1) return kUsage;
  keychain::Keychain::Added added;
  return addTo(options->value('k'), options->operands(), "SecCertificateAddToKeychain", &added,
               streams);
}

int verifyCertificate(const Words& words, const Streams& streams) {
  const auto options = Options::parse(words, "c:r:p:k:nLlCe:s:R:qtPv");
  if (!options || !options->has('c') || !options->operands().empty()) return kUsage;
  int status = kSuccess;
  const auto given = certificatesIn(valuesOf(words, "-c"), &status, streams);
  if (!given || given->certificates.empty()) return given ? kUsage : status;
  const auto roots = certificatesIn(valuesOf(words, "-r"), &status, streams);
  if (!roots) return status;
  const auto keychains =
      chosenKeychains(valuesOf(words, "-k"), "SecKeychainOpen", &status, streams);
  if (!keychains) return status;

  Pool pool;
  for (const Certificate& each : given->certificates) pool.offer(each);
  for (const Certificate& each : roots->certificates) pool.trust(each);
  const auto add = [&](const std::vector<Certificate>& certificates) {
    for (const Certificate& each : certificates) {
      pool.offer(each);
      if (roots->certificates.empty() && each.isSelfIssued()) pool.trust(each);
    }
  };
  for (const auto& keychain : *keychains) add(keychain.certificates());
  add(authorityCertificates());
  const Certificate& leaf = given->certificates.front();
  int error = chainError(leaf, pool);
  if (error == X509_V_OK && options->value('p').value_or("") == "codeSign" &&
      !leaf.allowsCodeSigning()) {
    error = X509_V_ERR_INVALID_PURPOSE;
  }
  if (error != X509_V_OK) {
    if (!options->has('q')) streams.error(fmt::format("Cert Verify Result: {}\n", nameOf(error)));
    return kFailure;
  }
  if (!options->has('q')) streams.out("...certificate verification successful.\n");
  return kSuccess;
}

}  // namespace tovrek::security
