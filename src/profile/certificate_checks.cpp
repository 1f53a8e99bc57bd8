// Questions about single certificates: of the profile and of the keychain.
#include <fmt/format.h>

#include <string>

#include "host/clock.h"
#include "host/files.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/signals.h"
#include "profile/ProvisioningProfile.h"
#include "profile/developer_certificates.h"
#include "tools/splitting.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

// How "security" reports the keychain's own status codes (the low byte of each).
constexpr int kItemNotFound = 44;
constexpr int kNoAccessForItem = 101;

// The bytes of the first certificate of that name; empty when there is none.
std::string derOfCertificateNamed(std::string_view name, const PlistDictionary& profile) {
  for (const Certificate& certificate : developerCertificates(profile)) {
    if (certificate.commonName() && *certificate.commonName() == name) return certificate.der();
  }
  return {};
}

// The subject line that "openssl" prints for the certificate; empty when it cannot be had.
std::string subjectOf(const std::string& der, const WrapperLogger& log) {
  const std::optional<std::string> folder = systemTemporaryFolder();
  if (!folder) return {};
  const double milliseconds = (currentTime() - kReferenceDateOffset) * 1000;
  const std::string path = joinPath(*folder, fmt::format("{:.0f}.der", milliseconds));
  const RemovedOnSignal removed(path);
  ErrorText reason;
  if (!writeFileAtomically(path, der, &reason)) {
    log.logWarning(fmt::format("{} could not be written: {}", path, reason.text()));
    removeItem(path);  // it may be there all the same, but for the flush of its folder
    return {};
  }

  Command command;
  command.argv = {"/usr/bin/openssl", "x509", "-inform", "der", "-in", path, "-subject", "-noout"};
  const Outcome outcome = runQuietly(command);
  if (!removeItem(path) && !removeItem(path, &reason)) {
    log.logWarning(fmt::format("{} could not be removed: {}", path, reason.text()));
  }
  return outcome.output;
}

bool hasOrganizationalUnit(std::string_view subject) {
  for (const std::string_view piece : splitAt(subject, '/')) {
    const std::vector<std::string_view> parts = splitAt(piece, '=');
    if (parts.size() == 2 && parts[0] == "OU") return true;
  }
  return false;
}

}  // namespace

void ProvisioningProfile::validateForiOS8Certificate(std::string_view certificateName,
                                                     const PlistDictionary& profile,
                                                     const WrapperLogger& log, ErrorText* error) {
  const std::string der = derOfCertificateNamed(certificateName, profile);
  if (hasOrganizationalUnit(subjectOf(der, log))) return;
  constexpr char kWarning[] =
      "WARNING: Your certificate does not contain the team identifier required for iOS 8.";
  log.logBasic(kWarning);
  warnIfEmpty(error, kWarning);
}

std::optional<bool> ProvisioningProfile::doesCertificateExistWithSHA1(std::string_view sha1,
                                                                      const RunContext& context,
                                                                      ErrorText* error) {
  const WrapperLogger& log = context.loggers.toolkit;
  Command command;
  command.argv = {"/usr/bin/security", "find-certificate", "-a", "-Z"};
  if (const auto keychain = context.keychain.namedKeychain()) command.argv.push_back(*keychain);
  const Outcome outcome = runQuietly(command);
  if (outcome.signalled || outcome.status == kNotStarted) {
    failWithStatus(error, "security", outcome.status, outcome.said());
    return std::nullopt;
  }
  if (outcome.status == kNoAccessForItem) {
    log.logDetailed("Cert query failed,No access for certificate item");
  }
  if (outcome.status == kItemNotFound || (outcome.status == 0 && outcome.output.empty())) {
    log.logDetailed("Cert query failed,No certificate details found");
  }
  if (outcome.status != 0 || sha1.empty()) return false;

  constexpr std::string_view kHashLine = "SHA-1 hash:";
  for (const std::string_view line : splitAt(outcome.output, '\n')) {
    if (!line.starts_with(kHashLine)) continue;
    if (equalsIgnoringCase(trimmed(line.substr(kHashLine.size())), sha1)) return true;
  }
  return false;
}

}  // namespace tovrek
