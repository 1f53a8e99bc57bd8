#include "programs/codesign/extraction.h"

#include <fmt/format.h>

#include "host/files.h"
#include "signing/CmsSignature.h"
#include "signing/requirements.h"

namespace tovrek::codesign {
namespace {

// "-" is standard output; files are added to, as the original does.
bool writeTo(const std::string& target, std::string_view bytes, const Streams& streams,
             ErrorText* error) {
  if (target == "-") {
    streams.out(bytes);
    return true;
  }
  // appendToFile() wants a file that exists.
  const bool exists = fileExists(target);
  ErrorText reason;
  const bool written =
      exists ? appendToFile(target, bytes) : writeFileAtomically(target, bytes, &reason);
  if (written) return true;
  const std::string why = reason.isSet() ? reason.text() : "cannot be written to";
  return fail(error, fmt::format("{}: {}", target, why));
}

// With ":" in front of the target, or --xml, the property list; else the blob around it too.
bool extractEntitlements(const std::string& option, bool xml,
                         const signing::CodeSignature& signature, const Streams& streams,
                         ErrorText* error) {
  const bool bare = option.starts_with(":");
  const auto blob = signature.component(signing::kEntitlementsSlot);
  if (!blob) return true;
  return writeTo(option.substr(bare ? 1 : 0), bare || xml ? signing::payloadOf(*blob) : *blob,
                 streams, error);
}

// The requirement that holds where a signature states none: for ad-hoc code its own hashes.
std::string impliedRequirement(const signing::CodeSignature& signature) {
  const auto cms = signing::CmsSignature::parse(signature.cms());
  if (cms) {
    const std::string& identifier = signature.best().info().identifier;
    return signing::requirementSetText(signing::defaultRequirementSet(identifier, cms->chain()));
  }
  std::string hashes;
  for (const signing::CodeDirectory& directory : signature.directories()) {
    hashes +=
        fmt::format("{}cdhash H\"{}\"", hashes.empty() ? "" : " or ", hexLower(directory.cdHash()));
  }
  return fmt::format("designated => {}\n", hashes);
}

bool extractRequirements(const std::string& target, const signing::CodeSignature& signature,
                         const Streams& streams, ErrorText* error) {
  const auto set = signature.component(signing::kRequirementsSlot);
  std::string text = set ? signing::requirementSetText(*set) : "";
  const auto index =
      set ? signing::SuperBlob::parse(*set, signing::kRequirementSetMagic) : std::nullopt;
  if (!index || !index->find(signing::kDesignatedRequirement)) {
    text += "# " + impliedRequirement(signature);
  }
  return writeTo(target, text, streams, error);
}

bool extractCertificates(const std::string& prefix, const signing::CodeSignature& signature,
                         ErrorText* error) {
  if (signature.cms().empty()) return true;
  const auto cms = signing::CmsSignature::parse(signature.cms(), error);
  if (!cms) return false;
  int number = 0;
  for (const auto& certificate : cms->chain().certificates()) {
    if (!writeFileAtomically(fmt::format("{}{}", prefix, number++), certificate.der(), error)) {
      return false;
    }
  }
  return true;
}

}  // namespace

int extractParts(const std::string& path, const Options& options,
                 const signing::CodeSignature& signature, const Streams& streams) {
  ErrorText error;
  const bool good =
      (!options.entitlements ||
       extractEntitlements(*options.entitlements, options.xml, signature, streams, &error)) &&
      (!options.requirements ||
       extractRequirements(*options.requirements, signature, streams, &error)) &&
      (!options.extractCertificates ||
       extractCertificates(*options.extractCertificates, signature, &error));
  return good ? int{kSuccess} : failPath(path, error.text(), streams);
}

}  // namespace tovrek::codesign
