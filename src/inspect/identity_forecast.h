// Whether a certificate that was named can sign.
#pragma once

#include <optional>
#include <string>

#include "inspect/model.h"
#include "signing/CertificateChain.h"

namespace tovrek::inspect {

// Whether the profile admits a certificate of this name or digest.
bool listsCertificate(const ProfileDetails& profile, const std::string& nameOrDigest);

// The two questions of a wrap: the profile or the keychain has to know the name, and the keychain
// has to have an identity that can sign. For a name that nobody knows: the names there are, and
// where the closest of them differs. The certificates that a signature would enclose, leaf first;
// none where the name cannot sign.
std::optional<signing::CertificateChain> judgeIdentity(const std::string& nameOrDigest,
                                                       const std::optional<std::string>& keychain,
                                                       const std::optional<ProfileDetails>& profile,
                                                       Findings* obstacles, Findings* remarks);

}  // namespace tovrek::inspect
