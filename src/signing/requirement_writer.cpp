// Requirements in their compiled form.
#include "signing/RequirementExpression.h"

namespace tovrek::signing {
namespace {

constexpr uint32_t kExpressionKind = 1;

class Writer {
 public:
  Writer() { number(kExpressionKind); }
  void expression(const RequirementExpression& e);
  std::string finish() const { return makeBlob(kRequirementMagic, words_); }

 private:
  void number(uint32_t value) { appendBig32(&words_, value); }
  void slot(int32_t value) { number(static_cast<uint32_t>(value)); }
  void data(std::string_view bytes) {
    number(static_cast<uint32_t>(bytes.size()));
    words_ += bytes;
    words_.resize(alignUp(words_.size(), 4));
  }
  void match(const RequirementExpression& e);

  std::string words_;
};

void Writer::match(const RequirementExpression& e) {
  number(static_cast<uint32_t>(e.match));
  if (e.match == RequirementMatch::kExists || e.match == RequirementMatch::kAbsent) return;
  if (e.match < RequirementMatch::kOn) return data(e.value);
  appendBig64(&words_, static_cast<uint64_t>(e.date));
}

void Writer::expression(const RequirementExpression& e) {
  number(static_cast<uint32_t>(e.op));
  switch (e.op) {
    case RequirementOp::kFalse:
    case RequirementOp::kTrue:
    case RequirementOp::kAppleAnchor:
    case RequirementOp::kAppleGenericAnchor:
    case RequirementOp::kTrustedCertificates:
    case RequirementOp::kNotarized:
    case RequirementOp::kLegacy:
      return;
    case RequirementOp::kIdentifier:
    case RequirementOp::kCdHash:
    case RequirementOp::kNamedAnchor:
    case RequirementOp::kNamedCode:
      return data(e.key);
    case RequirementOp::kAnchorHash:
      slot(e.certificate);
      return data(e.key);
    case RequirementOp::kInfoKeyValue:
      data(e.key);
      return data(e.value);
    case RequirementOp::kAnd:
    case RequirementOp::kOr:
    case RequirementOp::kNot:
      for (const RequirementExpression& operand : e.operands) expression(operand);
      return;
    case RequirementOp::kInfoKeyField:
    case RequirementOp::kEntitlementField:
      data(e.key);
      return match(e);
    case RequirementOp::kCertificateField:
    case RequirementOp::kCertificateGeneric:
    case RequirementOp::kCertificatePolicy:
    case RequirementOp::kCertificateDate:
      slot(e.certificate);
      data(e.key);
      return match(e);
    case RequirementOp::kTrustedCertificate:
      return slot(e.certificate);
    case RequirementOp::kPlatform:
      return number(e.number);
  }
}

}  // namespace

std::string RequirementExpression::blob() const {
  Writer writer;
  writer.expression(*this);
  return writer.finish();
}

}  // namespace tovrek::signing
