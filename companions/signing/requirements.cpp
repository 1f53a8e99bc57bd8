#include "companions/signing/requirements.h"

#include <openssl/objects.h>

#include "formats/openssl_owners.h"

namespace tovrek::signing {
namespace {

constexpr uint32_t kExpressionKind = 1;
constexpr int kLeafSlot = 0;
constexpr int kRootSlot = -1;

class RequirementWriter {
 public:
  RequirementWriter() { appendBig32(&words_, kExpressionKind); }
  RequirementWriter& op(RequirementOp value) { return number(static_cast<uint32_t>(value)); }
  RequirementWriter& match(RequirementMatch value) { return number(static_cast<uint32_t>(value)); }
  RequirementWriter& slot(int value) { return number(static_cast<uint32_t>(value)); }
  RequirementWriter& number(uint32_t value) {
    appendBig32(&words_, value);
    return *this;
  }
  RequirementWriter& data(std::string_view bytes) {
    number(static_cast<uint32_t>(bytes.size()));
    words_ += bytes;
    words_.resize(alignUp(words_.size(), 4));
    return *this;
  }
  std::string finish() const { return makeBlob(kRequirementMagic, words_); }

 private:
  std::string words_;
};

// Development and distribution certificates are renewed yearly under the same name, so the name is
// what is required, together with the kind of intermediate.
std::string appleRequirement(std::string_view identifier, const CertificateChain& chain) {
  return RequirementWriter()
      .op(RequirementOp::kAnd)
      .op(RequirementOp::kIdentifier)
      .data(identifier)
      .op(RequirementOp::kAnd)
      .op(RequirementOp::kAppleGenericAnchor)
      .op(RequirementOp::kAnd)
      .op(RequirementOp::kCertificateField)
      .slot(kLeafSlot)
      .data("subject.CN")
      .match(RequirementMatch::kEqual)
      .data(chain.leaf().subject("CN").value_or(""))
      .op(RequirementOp::kCertificateGeneric)
      .slot(1)
      .data(oidContents(kWwdrIntermediateOid))
      .match(RequirementMatch::kExists)
      .finish();
}

// The highest certificate that still belongs to the leaf's organisation.
int organizationSlot(const CertificateChain& chain) {
  const auto organization = chain.leaf().subject("O");
  if (!organization) return kLeafSlot;
  int slot = kLeafSlot;
  for (const CodeCertificate* next = chain.at(1); next != nullptr; next = chain.at(slot + 1)) {
    if (next->subject("O") != organization) break;
    ++slot;
  }
  return slot == static_cast<int>(chain.size()) - 1 ? kRootSlot : slot;
}

std::string organizationRequirement(std::string_view identifier, const CertificateChain& chain) {
  const int slot = organizationSlot(chain);
  return RequirementWriter()
      .op(RequirementOp::kAnd)
      .op(RequirementOp::kIdentifier)
      .data(identifier)
      .op(RequirementOp::kAnchorHash)
      .slot(slot)
      .data(chain.at(slot)->sha1())
      .finish();
}

}  // namespace

std::string oidContents(const std::string& dotted) {
  const ObjectOwner object(OBJ_txt2obj(dotted.c_str(), 1));
  if (!object) return "";
  const unsigned char* bytes = OBJ_get0_data(object.get());
  return std::string(bytes, bytes + OBJ_length(object.get()));
}

std::string defaultRequirementSet(std::string_view identifier, const CertificateChain& chain) {
  if (chain.empty()) return makeSuperBlob(kRequirementSetMagic, {});
  const std::string requirement = chain.isAppleDevelopment()
                                      ? appleRequirement(identifier, chain)
                                      : organizationRequirement(identifier, chain);
  return makeSuperBlob(kRequirementSetMagic, {{kDesignatedRequirement, requirement}});
}

}  // namespace tovrek::signing
