// Certificates that several signatures enclose alike.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "formats/Certificate.h"
#include "signing/CertificateChain.h"

namespace tovrek::signing {

// All code of an app has one signer, and so each message holds the same certificates. Reading one
// takes longer than to check the signature, as the library looks through all decoders of keys; this
// keeps what was read, by its very bytes, and the chains that were proven. For one thread.
class KnownCertificates {
 public:
  struct Set {
    std::vector<Certificate> certificates;
    std::map<std::string, CertificateChain> chains;  // by the leaf's bytes
  };
  // The certificates that stand one behind the other in `der`. Null when they cannot be read, and
  // when there are too many sets to keep: then the message has to be read as a whole.
  Set* read(std::string_view der);
  // CertificateChain::build() for this certificate and the others of its set.
  static const CertificateChain& chainOf(Set* set, const Certificate& leaf);

 private:
  std::map<std::string, Set, std::less<>> sets_;
};

// A CMS message without its certificates, and what was taken out.
struct SplitMessage {
  std::string rest;
  std::string_view certificates;
};
// None for what is not signed data in DER with one list of certificates: whoever reads the whole
// message will find out why.
std::optional<SplitMessage> withoutCertificates(std::string_view message);

}  // namespace tovrek::signing
