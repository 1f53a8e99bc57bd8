#include "signing/RequirementExpression.h"

#include <fmt/format.h>

namespace tovrek::signing {
namespace {

// Reads one expression after the other from the words of a requirement.
class Reader {
 public:
  explicit Reader(std::string_view words) : words_(words) {}

  bool expression(RequirementExpression* out, int depth = 0);
  bool atEnd() const { return at_ == words_.size(); }

 private:
  bool number(uint32_t* out);
  bool data(std::string* out);
  bool slot(int32_t* out);
  bool match(RequirementExpression* out);
  bool expressions(RequirementExpression* out, int count, int depth);
  bool unknown(uint32_t word, RequirementExpression* out, int depth);

  std::string_view words_;
  uint64_t at_ = 0;
};

bool Reader::number(uint32_t* out) {
  const auto value = readBig32(words_, at_);
  if (!value) return false;
  *out = *value;
  at_ += 4;
  return true;
}

bool Reader::data(std::string* out) {
  uint32_t length = 0;
  if (!number(&length) || !holds(words_, at_, alignUp(length, 4))) return false;
  *out = words_.substr(at_, length);
  at_ += alignUp(length, 4);
  return true;
}

bool Reader::slot(int32_t* out) {
  uint32_t bits = 0;
  if (!number(&bits)) return false;
  *out = static_cast<int32_t>(bits);
  return true;
}

bool Reader::match(RequirementExpression* out) {
  uint32_t kind = 0;
  if (!number(&kind) || kind > static_cast<uint32_t>(RequirementMatch::kAbsent)) return false;
  out->match = static_cast<RequirementMatch>(kind);
  if (out->match == RequirementMatch::kExists || out->match == RequirementMatch::kAbsent) {
    return true;
  }
  if (out->match < RequirementMatch::kOn) return data(&out->value);
  const auto date = readBig64(words_, at_);
  if (!date) return false;
  out->date = static_cast<int64_t>(*date);
  at_ += 8;
  return true;
}

bool Reader::expressions(RequirementExpression* out, int count, int depth) {
  for (int i = 0; i < count; ++i) {
    if (!expression(&out->operands.emplace_back(), depth + 1)) return false;
  }
  return true;
}

// Operators of later systems say by their high bits what an older one makes of them; both kinds
// are followed by one piece of data.
bool Reader::unknown(uint32_t word, RequirementExpression* out, int depth) {
  std::string skipped;
  if ((word & kUnknownIsFalse) != 0) {
    out->op = RequirementOp::kFalse;
    return data(&skipped);
  }
  return (word & kUnknownIsSkipped) != 0 && data(&skipped) && expression(out, depth + 1);
}

bool Reader::expression(RequirementExpression* out, int depth) {
  uint32_t word = 0;
  if (depth > kDeepestRequirement || !number(&word)) return false;
  out->op = static_cast<RequirementOp>(word & kOperatorBits);
  const auto operands = operandsOf(out->op);
  if (!operands) return unknown(word, out, depth);
  switch (*operands) {
    case RequirementOperands::kNone:
      return true;
    case RequirementOperands::kKey:
      return data(&out->key);
    case RequirementOperands::kKeyAndValue:
      return data(&out->key) && data(&out->value);
    case RequirementOperands::kKeyAndMatch:
      return data(&out->key) && match(out);
    case RequirementOperands::kSlot:
      return slot(&out->certificate);
    case RequirementOperands::kSlotAndKey:
      return slot(&out->certificate) && data(&out->key);
    case RequirementOperands::kSlotKeyAndMatch:
      return slot(&out->certificate) && data(&out->key) && match(out);
    case RequirementOperands::kNumber:
      return number(&out->number);
    case RequirementOperands::kOneExpression:
      return expressions(out, 1, depth);
    case RequirementOperands::kTwoExpressions:
      return expressions(out, 2, depth);
  }
  return false;
}

}  // namespace

std::optional<RequirementExpression> RequirementExpression::parse(std::string_view blob,
                                                                  ErrorText* error) {
  const bool isRequirement = blob.size() >= 12 && magicOf(blob) == kRequirementMagic &&
                             readBig32(blob, 8) == kExpressionKind;
  RequirementExpression expression;
  Reader reader(isRequirement ? blob.substr(12) : std::string_view());
  if (!isRequirement || !reader.expression(&expression) || !reader.atEnd()) {
    fail(error, "malformed requirement");
    return std::nullopt;
  }
  return expression;
}

}  // namespace tovrek::signing
