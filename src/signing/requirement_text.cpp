// Requirements in their language, as codesign shows them.
#include <fmt/format.h>
#include <openssl/objects.h>

#include <algorithm>
#include <cctype>

#include "formats/hex.h"
#include "formats/openssl_owners.h"
#include "host/clock.h"
#include "signing/RequirementExpression.h"
#include "signing/RequirementLexer.h"

namespace tovrek::signing {
namespace {

bool isPlain(char c, bool withDots) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || (withDots && c == '.');
}

// A string needs quotes unless the language would read it back as one word.
std::string word(const std::string& text, bool withDots = false) {
  const bool printable = std::all_of(text.begin(), text.end(), [](char c) {
    return std::isprint(static_cast<unsigned char>(c)) != 0;
  });
  if (!printable) return "0x" + hexLower(text);
  const bool bare =
      !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) == 0 &&
      std::all_of(text.begin(), text.end(), [&](char c) { return isPlain(c, withDots); }) &&
      !isRequirementKeyword(text);
  if (bare) return text;
  std::string quoted = "\"";
  for (const char c : text) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + '"';
}

std::string slotText(int32_t slot) {
  if (slot == 0) return " leaf";
  if (slot == -1) return " root";
  return fmt::format(" {}", slot);
}

// Dates beyond four-digit years, which no one writes, show as the last that has a text.
std::string dateText(int64_t date) {
  constexpr int64_t kFirst = -62000000000, kLast = 252423993599;
  const auto shown = static_cast<double>(std::clamp(date, kFirst, kLast));
  return fmt::format("timestamp \"{}\"", dateDescription(shown + kReferenceDateOffset));
}

// What stands around the value of a match; that of a date is written another way.
struct MatchWords {
  std::string_view before, after;
};
constexpr MatchWords kMatchWords[] = {
    {" /* exists */", ""}, {" = ", ""}, {" ~ ", ""},  {" = ", "*"}, {" = *", ""},
    {" < ", ""},           {" > ", ""}, {" <= ", ""}, {" >= ", ""}, {" = ", ""},
    {" < ", ""},           {" > ", ""}, {" <= ", ""}, {" >= ", ""}, {" absent ", ""},
};
static_assert(std::size(kMatchWords) == static_cast<size_t>(RequirementMatch::kAbsent) + 1);

std::string matchText(const RequirementExpression& e) {
  const auto [before, after] = kMatchWords[static_cast<size_t>(e.match)];
  if (e.match == RequirementMatch::kExists || e.match == RequirementMatch::kAbsent) {
    return std::string(before);
  }
  const bool isDate = e.match >= RequirementMatch::kOn;
  return fmt::format("{}{}{}", before, isDate ? dateText(e.date) : word(e.value), after);
}

std::string keyed(const char* name, const RequirementExpression& e) {
  return fmt::format("{}[{}]", name, word(e.key, true));
}

std::string certificateKeyed(const char* prefix, const RequirementExpression& e) {
  const std::string key = *prefix == '\0' ? word(e.key, true) : prefix + oidText(e.key);
  return fmt::format("certificate{}[{}]{}", slotText(e.certificate), key, matchText(e));
}

std::string inParentheses(const RequirementExpression& e, bool needed) {
  return needed ? fmt::format("({})", e.text()) : e.text();
}

}  // namespace

std::string oidText(std::string_view contents) {
  std::string der = "\x06";
  if (contents.size() > 127) return "0x" + hexLower(contents);
  der.push_back(static_cast<char>(contents.size()));
  der += contents;
  const unsigned char* at = asBytes(der);
  const ObjectOwner object(d2i_ASN1_OBJECT(nullptr, &at, static_cast<long>(der.size())));
  ERR_clear_error();
  if (!object) return "0x" + hexLower(contents);
  char text[256];
  const int length = OBJ_obj2txt(text, sizeof text, object.get(), 1);
  if (length <= 0 || length >= static_cast<int>(sizeof text)) return "0x" + hexLower(contents);
  return text;
}

std::string RequirementExpression::text() const {
  switch (op) {
    case RequirementOp::kFalse:
      return "never";
    case RequirementOp::kTrue:
      return "always";
    case RequirementOp::kIdentifier:
      return "identifier " + word(key);
    case RequirementOp::kAppleAnchor:
      return "anchor apple";
    case RequirementOp::kAnchorHash:
      return fmt::format("certificate{} = H\"{}\"", slotText(certificate), hexLower(key));
    case RequirementOp::kInfoKeyValue:
      return keyed("info", *this) + " = " + word(value);
    case RequirementOp::kAnd:
      return inParentheses(operands[0], operands[0].op == RequirementOp::kOr) + " and " +
             inParentheses(operands[1], operands[1].op == RequirementOp::kOr);
    case RequirementOp::kOr:
      return operands[0].text() + " or " + operands[1].text();
    case RequirementOp::kCdHash:
      return fmt::format("cdhash H\"{}\"", hexLower(key));
    case RequirementOp::kNot:
      return "! " + inParentheses(operands[0], operands[0].op == RequirementOp::kAnd ||
                                                   operands[0].op == RequirementOp::kOr);
    case RequirementOp::kInfoKeyField:
      return keyed("info", *this) + matchText(*this);
    case RequirementOp::kCertificateField:
      return certificateKeyed("", *this);
    case RequirementOp::kTrustedCertificate:
      return fmt::format("certificate{}trusted", slotText(certificate));
    case RequirementOp::kTrustedCertificates:
      return "anchor trusted";
    case RequirementOp::kCertificateGeneric:
      return certificateKeyed("field.", *this);
    case RequirementOp::kAppleGenericAnchor:
      return "anchor apple generic";
    case RequirementOp::kEntitlementField:
      return keyed("entitlement", *this) + matchText(*this);
    case RequirementOp::kCertificatePolicy:
      return certificateKeyed("policy.", *this);
    case RequirementOp::kNamedAnchor:
      return "anchor apple " + word(key);
    case RequirementOp::kNamedCode:
      return fmt::format("({})", word(key));
    case RequirementOp::kPlatform:
      return fmt::format("platform = {}", number);
    case RequirementOp::kNotarized:
      return "notarized";
    case RequirementOp::kCertificateDate:
      return certificateKeyed("timestamp.", *this);
    case RequirementOp::kLegacy:
      return "legacy";
  }
  return "";
}

std::string requirementText(std::string_view requirement) {
  const auto expression = RequirementExpression::parse(requirement);
  return expression ? expression->text() : "/* malformed */";
}

std::string requirementSetText(std::string_view set) {
  const auto index = SuperBlob::parse(set, kRequirementSetMagic);
  if (!index) return "/* malformed */\n";
  std::string text;
  for (const SuperBlob::Entry& entry : index->entries()) {
    const std::string type = entry.type >= 1 && entry.type < std::size(kRequirementTypes)
                                 ? kRequirementTypes[entry.type]
                                 : fmt::format("/*unknown type*/ {}", entry.type);
    text += fmt::format("{} => {}\n", type, requirementText(entry.blob));
  }
  return text;
}

}  // namespace tovrek::signing
