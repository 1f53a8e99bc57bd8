#include "signing/verify/message_check.h"

#include <algorithm>

#include "formats/PlistValue.h"
#include "signing/requirements.h"
#include "signing/verify/Verifier.h"
#include "signing/verify/cms_structure.h"
#include "signing/verify/signed_attributes.h"

namespace tovrek::signing {
namespace {

bool namesByPlist(const std::string& text, const std::vector<const CodeDirectory*>& directories) {
  PlistValue::Array hashes;
  for (const CodeDirectory* directory : directories) {
    hashes.emplace_back(PlistValue::Data{directory->cdHash()});
  }
  const auto plist = parsePlist(text);
  const auto* named = plist && plist->dictionary() != nullptr
                          ? arrayForKey(*plist->dictionary(), "cdhashes")
                          : nullptr;
  return named != nullptr && *named == hashes;
}

bool isNamed(const CodeDirectory& directory, const std::vector<CmsSignature::NamedHash>& named) {
  return std::any_of(named.begin(), named.end(), [&](const CmsSignature::NamedHash& each) {
    return each.oid == oidContents(directory.kind().oid) && each.hash == directory.fullHash();
  });
}

// A signer with several directories vouches for each of them, not only for the one it signed.
bool namesAll(const CodeSignature& signature, const CmsSignature& cms) {
  std::vector<const CodeDirectory*> ordered;
  for (const CodeDirectory& directory : signature.directories()) ordered.push_back(&directory);
  std::sort(ordered.begin(), ordered.end(),
            [](const auto* a, const auto* b) { return a->kind().type < b->kind().type; });
  if (!cms.cdHashesAttribute()) return ordered.size() == 1;
  if (!namesByPlist(*cms.cdHashesAttribute(), ordered)) return false;
  if (!cms.namedHashes()) return true;
  return cms.namedHashes()->size() == ordered.size() &&
         std::all_of(ordered.begin(), ordered.end(), [&](const CodeDirectory* directory) {
           return isNamed(*directory, *cms.namedHashes());
         });
}

bool isSignedBy(const CmsSignature& cms, const CodeSignature& signature) {
  const auto content = signature.primary().blob();
  return cms.isSignatureOver(content) || isSignedAsWritten(cms, signature.cms(), content);
}

}  // namespace

const char* messageFault(const CodeSignature& signature, const CmsSignature& cms,
                         const CertificateChain& chain) {
  if (!isConsistent(cms.message(), signature.cms()) || !isSignedBy(cms, signature) ||
      !namesAll(signature, cms)) {
    return kInvalidSignature;
  }
  if (cms.timestamp() && !cms.timestamp()->isRight) return kInvalidSignature;
  if (!chain.certificates().back().isSelfSigned()) return kNotTrusted;
  const std::string& team = signature.primary().info().teamId;
  // The authority's own software states a team that its certificate does not name.
  const Certificate* issuer = chain.at(1);
  const bool isOwn = chain.isApples() && issuer != nullptr &&
                     issuer->commonName() == "Apple Code Signing Certification Authority";
  const bool sameTeam = team.empty() || isOwn || cms.chain().leaf().organizationalUnit() == team;
  return sameTeam ? nullptr : kInvalidSignature;
}

}  // namespace tovrek::signing
