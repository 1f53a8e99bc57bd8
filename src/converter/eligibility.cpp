#include "converter/eligibility.h"

#include <fmt/format.h>

#include <string_view>

#include "converter/otool_questions.h"
#include "converter/steps.h"
#include "profile/ProvisioningProfile.h"

namespace tovrek::converter {
namespace {

size_t countOccurrences(std::string_view text, std::string_view part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string_view::npos;
       at = text.find(part, at + part.size())) {
    ++count;
  }
  return count;
}

bool failLogged(const Run& run, const char* logged) {
  run.log().logError(logged);
  return false;
}

}  // namespace

bool checkForDuplicateCertificates(const WrapperLogger& log, const std::string& certificate,
                                   ErrorText* error) {
  if (certificate.empty()) return false;
  const auto outcome = runShell(log, "security find-identity -v -p codesigning");
  if (!gaveAnswer(outcome, "security", error)) return true;
  const auto output = successfulOutput(outcome);
  if (!output || countOccurrences(*output, certificate) < 2) return false;
  fail(error,
       "WARNING: Duplicate certificates in keychain, code signing may fail.  Use Keychain Access "
       "utility to resolve this.");
  return true;
}

bool refuseSdkApp(Run& run, ErrorText* error) {
  if (!run.inspection.hasWEXSDKFramework) return true;
  fail(error, kLinkedAgainstSdk);
  return failLogged(run, "This Application is an SDK app");
}

bool refuseWrappedApp(Run& run, ErrorText* error) {
  const auto wrapped = verifyIfApplicationIsAlreadyWrapped(run.log(), *run.bundle, error);
  if (!wrapped) return failLogged(run, "This Application could not be examined");
  return !*wrapped || failLogged(run, "This Application is already wrapped");
}

bool refuseOrRenewWrappedApp(Run& run, ErrorText* error) {
  ErrorText refusal;
  const auto wrapped = verifyIfApplicationIsAlreadyWrapped(run.log(), *run.bundle, &refusal);
  if (!wrapped) {
    fail(error, refusal.text());
    return failLogged(run, "This Application could not be examined");
  }
  if (!*wrapped) return true;
  const Settings& settings = run.context.settings;
  run.isRenewal = settings.resignWrapped;
  if (settings.resignWrapped || settings.namesResignWrapped) {
    run.log().logBasic(fmt::format("resignWrapped {} {}, which is wrapped already",
                                   run.isRenewal ? "signs" : "would sign", run.appPath));
  }
  if (run.isRenewal) return true;
  fail(error, refusal.text());
  return failLogged(run, "This Application is already wrapped");
}

bool refuseUnsupportedApp(Run& run, ErrorText* error) {
  if (doesApplicationSupportAdobeAir(run.appPath, error)) {
    return failLogged(
        run, "WEX does not support wrapping applications created using the Adobe Air framework.");
  }
  const auto installable = verifyIfApplicationIsAppStoreApp(run.log(), *run.bundle, error);
  if (!installable) return failLogged(run, "This Application could not be examined");
  if (!*installable) {
    return failLogged(run, "This Application is an App Store app");
  }
  if (!verifyIfItNotANativeiOSApp(run.appPath, error)) {
    run.log().logWarning("This Application does not seems to be a standard native iOS app. ");
  }
  return true;
}

bool checkCertificate(Run& run, ErrorText* error) {
  const std::string certificate = run.request.certificate.value_or("");
  if (checkForDuplicateCertificates(run.log(), certificate, error)) {
    run.log().logError(error ? error->text() : "");
  }
  if (run.profile) {
    ProvisioningProfile::validateForiOS8Certificate(certificate, *run.profile, run.log(), error);
  }
  return true;
}

}  // namespace tovrek::converter
