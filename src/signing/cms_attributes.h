// The signed attributes by which a CMS names code directories.
#pragma once

#include <openssl/cms.h>

#include <optional>
#include <string>
#include <vector>

#include "signing/CmsSignature.h"

namespace tovrek::signing {

// A property list with the directories' hashes, all cut to the same size.
inline constexpr const char* kCdHashesOid = "1.2.840.113635.100.9.1";
// A set of digest name and whole hash, one pair for each directory.
inline constexpr const char* kNamedHashesOid = "1.2.840.113635.100.9.2";

// DER of one SEQUENCE { digest OBJECT IDENTIFIER, hash OCTET STRING }.
std::string namedHashDer(const CodeDirectory& directory);

// None when the attribute is absent or has another form.
std::optional<std::string> cdHashesOf(const CMS_SignerInfo* signer);
std::optional<std::vector<CmsSignature::NamedHash>> namedHashesOf(const CMS_SignerInfo* signer);
std::optional<double> signingTimeOf(const CMS_SignerInfo* signer);

}  // namespace tovrek::signing
