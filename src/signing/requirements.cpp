#include "signing/requirements.h"

#include <openssl/objects.h>

#include <utility>
#include <vector>

#include "formats/openssl_owners.h"
#include "signing/RequirementExpression.h"

namespace tovrek::signing {
namespace {

constexpr int kLeafSlot = 0;
constexpr int kRootSlot = -1;

// Marks of what is signed by a Developer ID for use outside of any store.
constexpr const char* kDeveloperIdIntermediateOid = "1.2.840.113635.100.6.2.6";
constexpr const char* kDeveloperIdLeafOid = "1.2.840.113635.100.6.1.13";

using Expression = RequirementExpression;

Expression identifierIs(std::string_view identifier) {
  Expression e;
  e.op = RequirementOp::kIdentifier;
  e.key = identifier;
  return e;
}

Expression anchorAppleGeneric() {
  Expression e;
  e.op = RequirementOp::kAppleGenericAnchor;
  return e;
}

Expression subjectIs(const Certificate& leaf, const char* field) {
  Expression e;
  e.op = RequirementOp::kCertificateField;
  e.certificate = kLeafSlot;
  e.key = std::string("subject.") + field;
  e.match = RequirementMatch::kEqual;
  e.value = leaf.subject(field).value_or("");
  return e;
}

Expression certificateHas(int slot, const char* oid) {
  Expression e;
  e.op = RequirementOp::kCertificateGeneric;
  e.certificate = slot;
  e.key = oidContents(oid);
  return e;
}

// a and (b and (c ...)): the nesting that signers emit.
Expression allOf(std::vector<Expression> conditions) {
  Expression all = std::move(conditions.back());
  for (size_t i = conditions.size() - 1; i-- > 0;) {
    Expression joined;
    joined.op = RequirementOp::kAnd;
    joined.operands.push_back(std::move(conditions[i]));
    joined.operands.push_back(std::move(all));
    all = std::move(joined);
  }
  return all;
}

// Development and distribution certificates are renewed yearly under the same name, so the name is
// what is required, together with the kind of intermediate.
Expression appleRequirement(std::string_view identifier, const CertificateChain& chain) {
  return allOf({identifierIs(identifier), anchorAppleGeneric(), subjectIs(chain.leaf(), "CN"),
                certificateHas(1, kWwdrIntermediateOid)});
}

bool isDeveloperId(const CertificateChain& chain) {
  return chain.size() == 3 && chain.isApples() &&
         chain.certificates()[1].hasExtension(kDeveloperIdIntermediateOid) &&
         chain.leaf().hasExtension(kDeveloperIdLeafOid);
}

// Any certificate of the team will do.
Expression developerIdRequirement(std::string_view identifier, const CertificateChain& chain) {
  return allOf({identifierIs(identifier), anchorAppleGeneric(),
                certificateHas(1, kDeveloperIdIntermediateOid),
                certificateHas(kLeafSlot, kDeveloperIdLeafOid), subjectIs(chain.leaf(), "OU")});
}

// The highest certificate that still belongs to the leaf's organisation.
int organizationSlot(const CertificateChain& chain) {
  const auto organization = chain.leaf().organization();
  if (!organization) return kLeafSlot;
  int slot = kLeafSlot;
  for (const Certificate* next = chain.at(1); next != nullptr; next = chain.at(slot + 1)) {
    if (next->organization() != organization) break;
    ++slot;
  }
  return slot == static_cast<int>(chain.size()) - 1 ? kRootSlot : slot;
}

Expression organizationRequirement(std::string_view identifier, const CertificateChain& chain) {
  Expression hash;
  hash.op = RequirementOp::kAnchorHash;
  hash.certificate = organizationSlot(chain);
  hash.key = chain.at(hash.certificate)->sha1();
  return allOf({identifierIs(identifier), std::move(hash)});
}

Expression designatedRequirement(std::string_view identifier, const CertificateChain& chain) {
  if (chain.isAppleDevelopment()) return appleRequirement(identifier, chain);
  if (isDeveloperId(chain)) return developerIdRequirement(identifier, chain);
  return organizationRequirement(identifier, chain);
}

}  // namespace

std::string oidContents(const std::string& dotted) {
  const ObjectOwner object(OBJ_txt2obj(dotted.c_str(), 1));
  if (!object) return "";
  const unsigned char* bytes = OBJ_get0_data(object.get());
  return std::string(bytes, bytes + OBJ_length(object.get()));
}

std::string defaultRequirementSet(std::string_view identifier, const CertificateChain& chain) {
  return withDesignatedRequirement(makeSuperBlob(kRequirementSetMagic, {}), identifier, chain);
}

std::string withDesignatedRequirement(std::string set, std::string_view identifier,
                                      const CertificateChain& chain) {
  const auto index = SuperBlob::parse(set, kRequirementSetMagic);
  if (chain.empty() || !index || index->find(kDesignatedRequirement)) return set;
  std::map<uint32_t, std::string> requirements;
  for (const SuperBlob::Entry& entry : index->entries()) requirements[entry.type] = entry.blob;
  requirements[kDesignatedRequirement] = designatedRequirement(identifier, chain).blob();
  return makeSuperBlob(kRequirementSetMagic, requirements);
}

}  // namespace tovrek::signing
