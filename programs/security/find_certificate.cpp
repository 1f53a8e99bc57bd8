// security find-certificate: by name, mail address or all, from the user's keychains and then from
// the one of Apple's public certificates.
#include <fmt/format.h>

#include "formats/Digest.h"
#include "formats/authorities.h"
#include "host/paths.h"
#include "programs/security/Options.h"
#include "programs/security/attribute_dump.h"
#include "programs/security/commands.h"
#include "programs/security/item_search.h"
#include "programs/security/keychain_choice.h"
#include "programs/security/status.h"

namespace tovrek::security {

namespace {

bool fits(const Certificate& certificate, const Options& options) {
  const auto name = options.value('c');
  const auto address = options.value('e');
  return (!name || containsIgnoringCase(certificate.inferredLabel(), *name)) &&
         (!address || equalsIgnoringCase(certificate.emailAddress().value_or(""), *address));
}

void printCertificate(const Certificate& certificate, const std::string& keychainPath,
                      const Options& options, const Streams& streams) {
  if (options.has('Z')) {
    const auto digest = [&](DigestAlgorithm algorithm) {
      return hexUpper(digestOf(algorithm, certificate.der()));
    };
    streams.out(fmt::format("SHA-256 hash: {}\nSHA-1 hash: {}\n", digest(DigestAlgorithm::kSha256),
                            digest(DigestAlgorithm::kSha1)));
  }
  if (options.has('m') && certificate.emailAddress()) {
    streams.out(fmt::format("email addresses: {}\n", *certificate.emailAddress()));
  }
  streams.out(options.has('p') ? pemOf(certificate) : attributeDump(certificate, keychainPath));
}

}  // namespace

int findCertificate(const Words& words, const Streams& streams) {
  constexpr std::string_view kCall = "SecKeychainSearchCopyNext";
  const auto options = Options::parse(words, "ac:e:mpZ");
  if (!options) return kUsage;
  int status = kSuccess;
  const auto keychains = chosenKeychains(options->operands(), kCall, &status, streams);
  if (!keychains) return status;

  const auto print = [&](const std::vector<Certificate>& certificates, const std::string& path) {
    for (const Certificate& certificate : certificates) {
      if (!fits(certificate, *options)) continue;
      printCertificate(certificate, path, *options, streams);
      if (!options->has('a')) return true;
    }
    return false;
  };
  for (const auto& each : *keychains) {
    if (print(each.certificates(), each.path())) return kSuccess;
  }
  if (options->operands().empty() && print(systemCertificates(), systemKeychain())) return kSuccess;
  // A list may be empty; a single certificate that was asked for may not be missing.
  return options->has('a') ? kSuccess : reportStatus(kCall, OsStatus::kItemNotFound, streams);
}

}  // namespace tovrek::security
