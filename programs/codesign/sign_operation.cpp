// codesign -s: from the command line to signing options.
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <charconv>

#include "host/files.h"
#include "keychain/identities.h"
#include "keychain/locations.h"
#include "programs/codesign/Codesign.h"
#include "programs/codesign/requirement_source.h"
#include "signing/Signer.h"
#include "signing/signing_rules.h"

namespace tovrek::codesign {
namespace {

using signing::SignOptions;

bool chooseIdentity(const Options& options, const Streams& streams,
                    signing::SigningIdentity* identity, ErrorText* error) {
  if (options.identity == "-") return true;
  std::vector<keychain::Keychain> keychains;
  if (options.keychain) {
    ErrorText reason;
    auto opened = keychain::openKeychain(*options.keychain, &reason);
    if (!opened) return fail(error, *options.keychain + ": " + reason.text());
    keychains.push_back(std::move(*opened));
  } else {
    keychains = keychain::openSearchList();
  }
  for (const keychain::Keychain& each : keychains) {
    for (const std::string& line : each.unreadable()) streams.error("codesign: " + line + "\n");
  }
  const auto found = keychain::findSigningIdentity(keychains, options.identity);
  if (!found.identity) {
    const std::string detail = found.detail.empty() ? "" : " (" + found.detail + ")";
    return fail(error, found.text + detail);
  }
  std::vector<Certificate> certificates = found.identity->chain;
  certificates.insert(certificates.begin(), found.identity->leaf);
  *identity = {signing::CertificateChain(std::move(certificates)), found.identity->key};
  return true;
}

bool parsePreserved(const std::string& list, signing::PreservedMetadata* preserve,
                    ErrorText* error) {
  bool ignored = false;
  const std::pair<const char*, bool*> names[] = {
      {"identifier", &preserve->identifier},
      {"requirements", &preserve->requirements},
      {"entitlements", &preserve->entitlements},
      {"resource-rules", &preserve->resourceRules},
      {"flags", &preserve->flags},
      {"team-identifier", &preserve->teamId},
      {"runtime", &preserve->runtime},
      // What signatures made here never have.
      {"launch-constraints", &ignored},
      {"library-constraints", &ignored},
      {"linker-signed", &ignored},
  };
  size_t at = 0;
  while (at <= list.size()) {
    const size_t comma = std::min(list.find(',', at), list.size());
    const std::string word = list.substr(at, comma - at);
    at = comma + 1;
    bool* target = nullptr;
    int matches = 0;
    for (const auto& [name, flag] : names) {
      if (word.empty() || !std::string_view(name).starts_with(word)) continue;
      target = flag;
      if (word == name) {
        matches = 1;
        break;
      }
      ++matches;
    }
    if (matches != 1) {
      return fail(error, fmt::format("\"{}\" is not a part of a signature to preserve", word));
    }
    *target = true;
  }
  return true;
}

bool parseFlags(const std::string& text, std::optional<uint32_t>* flags, ErrorText* error) {
  uint32_t value = 0;
  const bool isHex = text.starts_with("0x");
  const char* begin = text.data() + (isHex ? 2 : 0);
  const char* end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(begin, end, value, isHex ? 16 : 10);
  if (code == std::errc() && stop == end) {
    *flags = value;
    return true;
  }
  value = 0;
  for (size_t at = 0; at <= text.size();) {
    const size_t comma = std::min(text.find(',', at), text.size());
    const std::string name = text.substr(at, comma - at);
    const uint32_t flag = signing::flagByName(name);
    if (flag == 0) return fail(error, fmt::format("unknown option flag \"{}\"", name));
    value |= flag;
    at = comma + 1;
  }
  *flags = value;
  return true;
}

// One option may name several digests.
bool parseDigests(const std::vector<std::string>& lists, std::vector<signing::HashKind>* digests,
                  ErrorText* error) {
  bool sha1 = false;
  bool sha256 = false;
  for (const std::string& list : lists) {
    for (size_t at = 0; at <= list.size();) {
      const size_t comma = std::min(list.find(',', at), list.size());
      const std::string name = list.substr(at, comma - at);
      at = comma + 1;
      sha1 |= name == "sha1";
      sha256 |= name == "sha256";
      if (name != "sha1" && name != "sha256") {
        return fail(error, fmt::format("unknown digest algorithm \"{}\"", name));
      }
    }
  }
  if (sha1) digests->push_back(signing::kSha1);
  if (sha256) digests->push_back(signing::kSha256);
  return true;
}

bool parsePageSize(const std::string& text, uint8_t* log2, ErrorText* error) {
  uint32_t size = 0;
  const char* end = text.data() + text.size();
  const auto [stop, code] = std::from_chars(text.data(), end, size);
  if (code != std::errc() || stop != end || !std::has_single_bit(size) || size < 4096 ||
      size > 65536) {
    return fail(error, fmt::format("page size \"{}\" is no power of two from 4096 to 65536", text));
  }
  *log2 = static_cast<uint8_t>(std::countr_zero(size));
  return true;
}

// "10.15" or "10.15.4".
bool parseRuntime(const std::string& text, std::optional<uint32_t>* version, ErrorText* error) {
  uint32_t parts[3] = {};
  const char* at = text.data();
  const char* end = at + text.size();
  for (size_t i = 0; i < 3; ++i) {
    const auto [stop, code] = std::from_chars(at, end, parts[i]);
    if (code != std::errc() || parts[i] > (i == 0 ? 0xffffU : 0xffU)) break;
    if (stop == end) {
      *version = parts[0] << 16 | parts[1] << 8 | parts[2];
      return true;
    }
    if (*stop != '.') break;
    at = stop + 1;
  }
  return fail(error, fmt::format("runtime version \"{}\" is not of the form 10.15.4", text));
}

bool readInput(const std::string& path, std::optional<std::string>* contents, ErrorText* error) {
  ErrorText reason;
  std::string bytes;
  if (!readFile(path, &bytes, &reason)) {
    return fail(error, fmt::format("{}: {}", path, reason.text()));
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
  return rules->has_value() || fail(error, fmt::format("{}: {}", path, reason.text()));
}

bool translate(const Options& options, const Streams& streams, SignOptions* out, ErrorText* error) {
  out->force = options.force;
  out->dryRun = options.dryRun;
  out->identifier = options.identifier;
  out->identifierPrefix = options.prefix;
  return chooseIdentity(options, streams, &out->identity, error) &&
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
  if (!translate(options, streams, &translated, &error)) {
    streams.error(error.text() + "\n");
    return kFailure;
  }
  const auto& chain = translated.identity.chain;
  if (!chain.empty() && !chain.certificates().back().isSelfSigned()) {
    streams.error(
        fmt::format("Warning: unable to build chain to self-signed root for signer \"{}\"\n",
                    chain.leaf().signerName()));
  }
  if (options.timestamp) {
    streams.error("warning: no time stamp is added: time-stamp authorities are not asked\n");
  }
  signing::SignReport report;
  const bool good = signing::sign(path, translated, &report, &error);
  for (const std::string& note : report.notes) {
    streams.error(fmt::format("{}: {}\n", path, note));
  }
  if (!good) return failPath(path, error.text(), streams);
  if (options.verbosity > 0) {
    streams.error(fmt::format("{}: signed {} [{}]\n", path, report.format, report.identifier));
  }
  return kSuccess;
}

}  // namespace tovrek::codesign
