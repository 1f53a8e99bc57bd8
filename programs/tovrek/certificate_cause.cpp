#include "programs/tovrek/certificate_cause.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <optional>
#include <vector>

#include "host/files.h"
#include "host/paths.h"
#include "host/process.h"
#include "profile/developer_certificates.h"
#include "programs/tovrek/explain.h"

namespace tovrek {
namespace {

using Names = std::vector<std::string>;

std::string without(std::string text, std::string_view characters) {
  std::erase_if(text, [&](char c) { return characters.find(c) != std::string_view::npos; });
  return text;
}

std::string withoutAll(std::string text, const std::vector<std::string_view>& parts) {
  for (const std::string_view part : parts) {
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at)) {
      text.erase(at, part.size());
    }
  }
  return text;
}

// No-break and narrow blanks come along when text is copied from a page.
std::string withoutBlanks(const std::string& text) {
  return withoutAll(without(text, " \t\r\n"),
                    {"\xc2\xa0", "\xe2\x80\xaf", "\xe2\x80\x89", "\xe3\x80\x80"});
}

std::string withoutQuotes(const std::string& text) {
  return withoutAll(without(text, "\"'"), {"\xe2\x80\x9c", "\xe2\x80\x9d", "\xe2\x80\x9e",
                                           "\xe2\x80\x98", "\xe2\x80\x99", "\xe2\x80\x9a"});
}

bool isDigest(const std::string& digits) {
  constexpr size_t kFewestDigits = 32;
  return digits.size() >= kFewestDigits &&
         digits.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::string causeOfDigest(const std::string& given) {
  constexpr size_t kSha1Digits = 40;
  if (without(given, ": ").size() != kSha1Digits) return "no digest of 40 digits";
  return given.find(':') != std::string::npos ? "a digest with colons" : "an unknown digest";
}

// Why nothing could be read of the keychain that was named; empty when it could.
std::string causeOfKeychain(const RunContext& context) {
  const auto keychain = context.keychain.namedKeychain();
  if (!keychain) return "";
  if (!fileExists(*keychain)) return "no such keychain";
  Command command;
  command.argv = {"/usr/bin/security", "find-certificate", "-a", "-Z", *keychain};
  command.standardError = StandardError::kCapture;
  return runQuietly(command).status == 0 ? "" : "a keychain that cannot be opened";
}

std::string causeOfName(const std::string& given, const Names& listed) {
  const auto anyIs = [&](const auto& alike) { return std::ranges::any_of(listed, alike); };
  const std::string bare = withoutBlanks(withoutQuotes(given));
  if (anyIs([&](const auto& name) { return equalsIgnoringCase(name, given); })) return "letters";
  if (anyIs([&](const auto& name) { return withoutBlanks(name) == withoutBlanks(given); })) {
    return "blanks";
  }
  if (anyIs([&](const auto& name) { return equalsIgnoringCase(withoutBlanks(name), bare); })) {
    return "quotation marks";
  }
  const bool isPart =
      anyIs([&](const auto& name) { return !given.empty() && containsIgnoringCase(name, given); });
  return isPart ? "a part of the name" : "";
}

// Asked without a word on standard error: what there is to say has been said before.
std::optional<Names> listedNames(const Situation& situation) {
  Command command;
  command.argv = {"/usr/bin/security", "cms", "-D", "-i",
                  situation.request->provisionProfile.value_or("")};
  command.standardError = StandardError::kCapture;
  const Outcome outcome = runQuietly(command);
  const auto profile = outcome.status == 0 ? parsePlist(outcome.output) : std::nullopt;
  if (!profile || profile->dictionary() == nullptr) return std::nullopt;
  Names names;
  for (const Certificate& certificate : developerCertificates(*profile->dictionary())) {
    names.push_back(certificate.inferredLabel());
  }
  return names;
}

}  // namespace

std::string causeOfCertificate(const Situation& situation) {
  const std::string given = situation.certificate.value_or("");
  if (const std::string cause = causeOfKeychain(*situation.context); !cause.empty()) return cause;
  const auto listed = listedNames(situation);
  if (!listed) return "no profile";
  if (listed->empty()) return "a profile without certificates";
  if (isPlainFile(given)) return "a file";
  if (isDigest(without(given, ": "))) return causeOfDigest(given);
  return causeOfName(given, *listed);
}

std::string factsAboutCertificate(const Situation& situation) {
  const bool isMeant = situation.request != nullptr && situation.context != nullptr &&
                       situation.text.starts_with("iOS distribution certificate name (");
  const auto listed = isMeant ? listedNames(situation) : std::nullopt;
  if (!listed || listed->empty()) return "";
  return fmt::format(" The profile lists: {}", fmt::join(*listed, "; "));
}

}  // namespace tovrek
