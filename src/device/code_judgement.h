// Judging the signature of one piece of code.
#pragma once

#include <optional>
#include <string>

#include "device/Finding.h"
#include "formats/Certificate.h"
#include "formats/PlistValue.h"
#include "signing/CertificateChain.h"
#include "signing/KnownCertificates.h"
#include "signing/verify/resource_check.h"

namespace tovrek::device {

// What the signature of a piece of code says, as far as it can be read.
struct SignedCode {
  PlistDictionary info;  // of a bundle
  std::optional<Certificate> signer;
  std::string team;  // that the signature states, else the signer's organisational unit
  std::optional<PlistDictionary> entitlements;
};

// Reads every page and sealed file anew, but certificates that are in `known` already, which may be
// null. Adds what does not hold to `findings`, under `place`.
SignedCode judgeCode(const std::string& path, const std::string& place, double now,
                     signing::DigestsToCheck digests, signing::KnownCertificates* known,
                     Findings* findings,
                     const signing::FileSource& files = signing::FileSource::disk());

// What is to be said against the certificates that a signature encloses, leaf first.
void judgeSigner(const signing::CertificateChain& enclosed, const std::string& place, double now,
                 Findings* findings);

}  // namespace tovrek::device
