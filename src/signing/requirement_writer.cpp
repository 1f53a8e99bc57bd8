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
  using Operands = RequirementOperands;
  number(static_cast<uint32_t>(e.op));
  const Operands operands = operandsOf(e.op).value_or(Operands::kNone);
  const bool hasSlot = operands == Operands::kSlot || operands == Operands::kSlotAndKey ||
                       operands == Operands::kSlotKeyAndMatch;
  const bool hasMatch =
      operands == Operands::kKeyAndMatch || operands == Operands::kSlotKeyAndMatch;
  const bool hasKey = hasMatch || operands == Operands::kKey ||
                      operands == Operands::kKeyAndValue || operands == Operands::kSlotAndKey;
  if (hasSlot) slot(e.certificate);
  if (hasKey) data(e.key);
  if (hasMatch) match(e);
  if (operands == Operands::kKeyAndValue) data(e.value);
  if (operands == Operands::kNumber) number(e.number);
  for (const RequirementExpression& operand : e.operands) expression(operand);
}

}  // namespace

std::string RequirementExpression::blob() const {
  Writer writer;
  writer.expression(*this);
  return writer.finish();
}

}  // namespace tovrek::signing
