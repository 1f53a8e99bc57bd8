#include "device/code_judgement.h"

#include <fmt/format.h>

#include "host/clock.h"
#include "signing/CodeSignature.h"
#include "signing/verify/Verifier.h"
#include "signing/verify/message_check.h"

namespace tovrek::device {
namespace {

class CodeJudge {
 public:
  CodeJudge(const std::string& place, double now, const signing::FileSource& files,
            Findings* findings)
      : place_(place), now_(now), files_(files), findings_(*findings) {}

  SignedCode judge(const std::string& path, signing::DigestsToCheck digests,
                   signing::KnownCertificates* known);
  void judgeChain(const signing::CertificateChain& enclosed);

 private:
  void refuse(std::string_view code, std::string reason) {
    findings_.push_back({code, place_, std::move(reason)});
  }
  void judgeVerdict(const signing::Verdict& verdict);
  void judgeDates(const Certificate& certificate);
  void readSignature(const std::string& path, SignedCode* code);

  const std::string& place_;
  const double now_;
  const signing::FileSource& files_;
  Findings& findings_;
};

SignedCode CodeJudge::judge(const std::string& path, signing::DigestsToCheck digests,
                            signing::KnownCertificates* known) {
  SignedCode code;
  signing::VerifyOptions options;
  options.digests = digests;
  options.files = &files_;
  options.certificates = known;
  const signing::Verdict verdict = signing::verifyCode(path, options);
  judgeVerdict(verdict);
  readSignature(path, &code);
  if (verdict.enclosed.empty()) return code;
  code.signer = verdict.enclosed.leaf();
  if (code.team.empty()) code.team = code.signer->organizationalUnit().value_or("");
  judgeChain(verdict.enclosed);
  return code;
}

void CodeJudge::judgeVerdict(const signing::Verdict& verdict) {
  // A chain that is not whole is told of where the chain is read. Designated requirements are not
  // for devices: apps may keep that of their first signer.
  const bool isWhole = verdict.valid || verdict.lines.empty();
  if (isWhole || verdict.lines[0] == signing::kNotTrusted) return;
  if (verdict.lines[0] == signing::kNotSigned) {
    return refuse(kSignatureMissing, signing::kNotSigned);
  }
  std::string reason = verdict.lines[0];
  for (size_t i = 1; i < verdict.lines.size(); ++i) reason += "; " + verdict.lines[i];
  refuse(kSignatureInvalid, std::move(reason));
}

void CodeJudge::readSignature(const std::string& path, SignedCode* code) {
  const auto object = signing::CodeObject::resolve(path, nullptr, files_);
  if (!object) return;
  code->info = object->info;
  const auto file = signing::CodeFile::open(object->executable, nullptr, files_);
  const auto signature = file ? signing::CodeSignature::of(*object, *file, nullptr) : std::nullopt;
  if (!signature) return;
  if (const auto text = signature->entitlementsText()) {
    const auto plist = parsePlist(*text);
    if (plist && plist->dictionary() != nullptr) code->entitlements = *plist->dictionary();
  }
  if (signature->isAdhoc()) {
    return refuse(kSignatureAdhoc, "it is signed without a certificate");
  }
  code->team = signature->best().info().teamId;
}

// A device knows the roots and has no intermediates of its own.
void CodeJudge::judgeChain(const signing::CertificateChain& enclosed) {
  const Certificate& last = enclosed.certificates().back();
  const signing::CertificateChain whole = enclosed.completed();
  const bool lacksRootAlone = whole.size() == enclosed.size() + 1 && whole.isApples();
  if (!last.isSelfSigned() && !lacksRootAlone) {
    refuse(kChainIncomplete,
           fmt::format("the signature does not hold the issuer of \"{}\"", last.signerName()));
  } else if (!whole.isApples()) {
    refuse(kChainNotTrusted, fmt::format("devices do not know the authority \"{}\"",
                                         whole.certificates().back().signerName()));
  }
  for (const Certificate& each : enclosed.certificates()) judgeDates(each);
  if (!enclosed.leaf().allowsCodeSigning()) {
    refuse(kCertificatePurpose, fmt::format("the certificate \"{}\" is not meant for code signing",
                                            enclosed.leaf().signerName()));
  }
}

void CodeJudge::judgeDates(const Certificate& certificate) {
  if (certificate.notBefore() <= now_ && now_ <= certificate.notAfter()) return;
  refuse(kCertificateDates,
         fmt::format("the certificate \"{}\" is valid from {} to {}", certificate.signerName(),
                     dateDescription(certificate.notBefore()),
                     dateDescription(certificate.notAfter())));
}

}  // namespace

SignedCode judgeCode(const std::string& path, const std::string& place, double now,
                     signing::DigestsToCheck digests, signing::KnownCertificates* known,
                     Findings* findings, const signing::FileSource& files) {
  return CodeJudge(place, now, files, findings).judge(path, digests, known);
}

void judgeSigner(const signing::CertificateChain& enclosed, const std::string& place, double now,
                 Findings* findings) {
  CodeJudge(place, now, signing::FileSource::disk(), findings).judgeChain(enclosed);
}

}  // namespace tovrek::device
