#include "tests/fuzz/signing_fuzzing.h"

#include <cstdio>
#include <cstdlib>

#include "signing/CmsSignature.h"
#include "signing/CodeDirectory.h"
#include "signing/Entitlements.h"
#include "signing/RequirementParser.h"
#include "signing/verify/message_check.h"
#include "signing/verify/requirement_check.h"

namespace tovrek::test {
namespace {

using signing::RequirementExpression;

// Names that the language cannot tell from others, or cannot spell, come back as something else.
bool isSpeakable(const RequirementExpression& e) {
  using enum signing::RequirementOp;
  if (e.op == kCertificateField && (e.key.starts_with("field.") || e.key.starts_with("policy.") ||
                                    e.key.starts_with("timestamp."))) {
    return false;
  }
  if (e.op == kCertificateGeneric || e.op == kCertificatePolicy || e.op == kCertificateDate) {
    if (e.key.empty() || signing::oidContents(signing::oidText(e.key)) != e.key) return false;
  }
  if ((e.op == kAnchorHash || e.op == kCdHash) && e.key.size() != 20) return false;
  if (e.op == kPlatform && e.number > 0x7fffffff) return false;
  const bool isDated =
      e.match >= signing::RequirementMatch::kOn && e.match <= signing::RequirementMatch::kOnOrAfter;
  if (e.certificate < -0x7fffffff ||
      (isDated && (e.date < -31000000000 || e.date > 252423993599))) {
    return false;
  }
  for (const RequirementExpression& operand : e.operands) {
    if (!isSpeakable(operand)) return false;
  }
  return true;
}

void checkRoundTrip(const RequirementExpression& expression) {
  const auto compiled = RequirementExpression::parse(expression.blob());
  const std::string text = expression.text();
  const bool same = compiled && compiled->text() == text;
  ErrorText error;
  const auto again =
      same && isSpeakable(expression) ? signing::parseRequirement(text, &error) : std::nullopt;
  if (same && (!isSpeakable(expression) || (again && again->text() == text))) return;
  std::fprintf(stderr, "[%s] came back otherwise: %s\n", text.c_str(), error.text().c_str());
  std::abort();
}

// Hash areas and strings, all of which parse() promises to lie inside.
void readDirectory(const signing::CodeDirectory& directory) {
  size_t bytes = directory.info().identifier.size();
  for (uint32_t slot = 0; slot <= directory.specialSlotCount(); ++slot) {
    for (const char c : directory.specialHash(slot)) bytes += static_cast<unsigned char>(c);
  }
  for (uint32_t page = 0; page < directory.codeSlotCount(); ++page) {
    for (const char c : directory.codeHash(page)) bytes += static_cast<unsigned char>(c);
  }
  if (bytes > SIZE_MAX / 2) std::abort();  // so that the reads are not optimised away
}

void readSignature(std::string_view bytes) {
  const auto index = signing::SuperBlob::parse(bytes, signing::kEmbeddedSignatureMagic);
  if (!index) return;
  if (const auto directories = signing::codeDirectoriesOf(*index)) {
    for (const auto& directory : *directories) readDirectory(directory);
  }
  if (const auto set = index->find(signing::kRequirementsSlot)) signing::requirementSetText(*set);
  if (const auto blob = index->find(signing::kEntitlementsSlot)) {
    signing::Entitlements::fromPlist(*blob);
  }
  if (const auto blob = index->find(signing::kCmsSlot)) {
    if (const auto cms = signing::CmsSignature::parse(signing::payloadOf(*blob))) {
      cms->isSignatureOver("content");
    }
  }
}

}  // namespace

void fuzzSigning(std::string_view bytes) {
  ErrorText error;
  if (const auto expression = signing::parseRequirement(bytes, &error)) {
    checkRoundTrip(*expression);
    signing::satisfies({}, *expression);
  } else if (!error.isSet()) {
    std::abort();
  }
  signing::parseRequirementSet(bytes, nullptr);
  if (const auto expression = RequirementExpression::parse(bytes)) checkRoundTrip(*expression);
  readSignature(bytes);
}

}  // namespace tovrek::test
