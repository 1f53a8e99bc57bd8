#include "converter/signing_certificate.h"

#include <algorithm>

#include "formats/hex.h"
#include "tools/splitting.h"
#include "tools/tool_run.h"

namespace tovrek::converter {
namespace {

constexpr size_t kDigestDigits = 40;

struct ListedIdentity {
  std::string sha1;
  std::string name;
};

// From a line `  1) DIGEST "NAME"`.
std::optional<ListedIdentity> identityIn(std::string_view line) {
  const size_t digest = line.find(") ");
  const size_t name = line.find('"');
  const size_t end = line.rfind('"');
  if (digest == std::string_view::npos || name == std::string_view::npos || end <= name) {
    return std::nullopt;
  }
  return ListedIdentity{toLowerAscii(line.substr(digest + 2, kDigestDigits)),
                        std::string(line.substr(name + 1, end - name - 1))};
}

}  // namespace

bool SigningCertificates::include(const Certificate& certificate) const {
  if (sha1.empty()) return certificate.inferredLabel() == name;
  return std::ranges::find(sha1, certificate.sha1Hex()) != sha1.end();
}

SigningCertificates signingCertificates(const Run& run) {
  const std::string name = run.request.certificate.value_or("");
  if (name.size() == kDigestDigits && bytesFromHex(name)) return {{toLowerAscii(name)}, name};
  Command command;
  command.argv = {"/usr/bin/security", "find-identity", "-v", "-p", "codesigning"};
  if (const auto keychain = run.context.keychain.namedKeychain()) command.argv.push_back(*keychain);
  const Outcome outcome = runQuietly(command);
  SigningCertificates exact{{}, name};
  SigningCertificates similar{{}, name};
  if (outcome.status != 0) return exact;
  for (const std::string_view line : splitAt(outcome.output, '\n')) {
    const auto listed = identityIn(line);
    if (!listed || !containsIgnoringCase(listed->name, name)) continue;
    (listed->name == name ? exact : similar).sha1.push_back(listed->sha1);
  }
  return exact.sha1.empty() ? similar : exact;
}

}  // namespace tovrek::converter
