// codesign -s: from the command line to signing options.
#include <fmt/format.h>

#include "host/files.h"
#include "host/printable.h"
#include "host/progress_report.h"
#include "keychain/identities.h"
#include "keychain/locations.h"
#include "programs/codesign/Codesign.h"
#include "programs/codesign/option_values.h"
#include "programs/codesign/requirement_source.h"
#include "signing/Signer.h"

namespace tovrek::codesign {
namespace {

using signing::SignOptions;

// Unverified: the original's texts are known, and that it signs nothing then; whether it also tells
// the first where the chain is there but an issuer has expired is not.
std::string noChainText(const std::string& path, const keychain::LookupResult& found) {
  return fmt::format(
      "Warning: unable to build chain to self-signed root for signer \"{}\"\n"
      "{}: errSecInternalComponent\n{}",
      found.text, path, found.detail);
}

bool chooseIdentity(const std::string& path, const Options& options, const Streams& streams,
                    signing::SigningIdentity* identity, ErrorText* error) {
  if (options.identity == "-") return true;
  std::vector<keychain::Keychain> keychains;
  std::vector<keychain::Unopened> unopened;
  if (options.keychain) {
    ErrorText reason;
    auto opened = keychain::openKeychain(*options.keychain, &reason);
    if (!opened) return fail(error, *options.keychain + ": " + reason.text());
    keychains.push_back(std::move(*opened));
  } else {
    keychains = keychain::openSearchList(&unopened);
  }
  for (const keychain::Keychain& each : keychains) {
    for (const std::string& line : each.unreadable()) streams.error("codesign: " + line + "\n");
  }
  const auto found = keychain::findSigningIdentity(keychains, options.identity);
  if (found.outcome == keychain::Lookup::kNoChain) return fail(error, noChainText(path, found));
  if (!found.identity) {
    std::string detail = found.detail;
    for (const keychain::Unopened& each : unopened) {
      detail += fmt::format(" {}: {}.", each.path, each.reason);
    }
    return fail(error, detail.empty() ? found.text : found.text + " (" + detail + ")");
  }
  std::vector<Certificate> certificates = found.identity->chain;
  certificates.insert(certificates.begin(), found.identity->leaf);
  *identity = {signing::CertificateChain(std::move(certificates)), found.identity->key};
  return true;
}

bool readInput(const std::string& path, std::optional<std::string>* contents, ErrorText* error) {
  ErrorText reason;
  std::string bytes;
  if (!readFile(path, &bytes, &reason)) {
    return fail(error, fmt::format("{}: {}", printable(path), reason.text()));
  }
  *contents = std::move(bytes);
  return true;
}

bool readRequirements(const std::string& argument, std::optional<std::string>* set,
                      ErrorText* error) {
  *set = readRequirementSet(argument, error);
  return set->has_value();
}

bool readRules(const std::string& path, std::optional<PlistDictionary>* rules, ErrorText* error) {
  ErrorText reason;
  *rules = readPlistDictionary(path, &reason);
  return rules->has_value() || fail(error, fmt::format("{}: {}", printable(path), reason.text()));
}

bool translate(const std::string& path, const Options& options, const Streams& streams,
               SignOptions* out, ErrorText* error) {
  out->force = options.force;
  out->dryRun = options.dryRun;
  out->identifier = options.identifier;
  out->identifierPrefix = options.prefix;
  return chooseIdentity(path, options, streams, &out->identity, error) &&
         (!options.preserve || parsePreserved(*options.preserve, &out->preserve, error)) &&
         (!options.flags || parseFlags(*options.flags, &out->flags, error)) &&
         (!options.runtimeVersion ||
          parseRuntime(*options.runtimeVersion, &out->runtimeVersion, error)) &&
         (!options.pageSize || parsePageSize(*options.pageSize, &out->pageSizeLog2, error)) &&
         parseDigests(options.digests, &out->digests, error) &&
         (!options.entitlements || readInput(*options.entitlements, &out->entitlements, error)) &&
         (!options.requirements ||
          readRequirements(*options.requirements, &out->requirements, error)) &&
         (!options.resourceRules || readRules(*options.resourceRules, &out->resourceRules, error));
}

}  // namespace

int signPath(const std::string& path, const Options& options, const Streams& streams) {
  SignOptions translated;
  ErrorText error;
  if (!translate(path, options, streams, &translated, &error)) {
    streams.error(error.text() + "\n");
    return kFailure;
  }
  if (options.timestamp) {
    streams.error("warning: no time stamp is added: time-stamp authorities are not asked\n");
  }
  ProgressReport progress;
  translated.progress = &progress;
  signing::SignReport report;
  const bool good = signing::sign(path, translated, &report, &error);
  for (const std::string& note : report.notes) {
    streams.error(fmt::format("{}: {}\n", printable(path), note));
  }
  if (!good) {
    failPath(path, error.text(), streams);
    if (error.text() == signing::kAlreadySigned) {
      streams.error("codesign: -f replaces the signature\n");
    }
    return kFailure;
  }
  if (options.verbosity > 0) {
    streams.error(fmt::format("{}: signed {} [{}]\n", printable(path), report.format,
                              printable(report.identifier)));
  }
  return kSuccess;
}

}  // namespace tovrek::codesign
