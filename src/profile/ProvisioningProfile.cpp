#include "profile/ProvisioningProfile.h"

#include <fmt/format.h>

#include "formats/entitlement_keys.h"
#include "profile/developer_certificates.h"
#include "tools/tool_run.h"

namespace tovrek {
namespace {

constexpr char kSecurity[] = "/usr/bin/security";
constexpr char kEntitlements[] = "Entitlements";

Command decodingCommand(const std::string& profilePath, const PellRequest& keychain) {
  Command command;
  command.argv = {kSecurity, "cms", "-D"};
  if (const auto path = keychain.namedKeychain()) {
    command.argv.insert(command.argv.end(), {"-k", *path});
  }
  command.argv.insert(command.argv.end(), {"-i", profilePath});
  return command;
}

std::optional<std::string> optionalString(const PlistDictionary& dictionary, std::string_view key) {
  const std::string* text = stringForKey(dictionary, key);
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

std::optional<std::string> firstStringOf(const PlistDictionary& dictionary, std::string_view key) {
  const PlistValue::Array* list = arrayForKey(dictionary, key);
  if (list == nullptr || list->empty()) return std::nullopt;
  const std::string* text = list->front().string();
  return text != nullptr ? std::optional(*text) : std::nullopt;
}

PlistDictionary entitlementsOf(const PlistDictionary& profile) {
  const PlistDictionary* entitlements = dictionaryForKey(profile, kEntitlements);
  return entitlements != nullptr ? *entitlements : PlistDictionary();
}

}  // namespace

std::optional<PlistDictionary> ProvisioningProfile::extractProvisioningProfileData(
    const std::string& path, const RunContext& context, ErrorText* error) {
  const Outcome outcome = runQuietly(decodingCommand(path, context.keychain));
  if (outcome.status != 0) {
    failWithStatus(error, "security", outcome.status, outcome.said());
    return std::nullopt;
  }
  if (outcome.output.empty()) {
    context.loggers.toolkit.logError(
        "extractProvisioningProfileData failed to extract any data from current provisioning "
        "profile.");
    return std::nullopt;
  }
  const std::optional<PlistValue> value = parsePlist(outcome.output, error);
  if (!value) return std::nullopt;
  if (value->dictionary() == nullptr) {
    fail(error, fmt::format("The provisioning profile holds no dictionary: {}", path));
    return std::nullopt;
  }
  return *value->dictionary();
}

bool ProvisioningProfile::decode(ErrorText* error) {
  if (!profilePList_ || profilePList_->empty()) {
    profilePList_ = extractProvisioningProfileData(profile_, context_, error);
  }
  return profilePList_.has_value();
}

void ProvisioningProfile::readIdentifiers() {
  appIdPrefixFromProfile_ = firstStringOf(*profilePList_, "ApplicationIdentifierPrefix");
  appIdFromProfile_ =
      optionalString(entitlementsOf(*profilePList_), entitlement::kApplicationIdentifier);
  isWildcardProfile_ = appIdFromProfile_ && appIdFromProfile_->find('*') != std::string::npos;
}

const std::vector<std::string>* ProvisioningProfile::getCertificates(ErrorText* error) {
  if (!certificates_) certificates_ = getCertifiatesFromProvisionProfile(error);
  return certificates_ ? &*certificates_ : nullptr;
}

std::optional<std::vector<std::string>> ProvisioningProfile::getCertifiatesFromProvisionProfile(
    ErrorText* error) {
  if (!decode(error)) return std::nullopt;
  readIdentifiers();
  teamIdFromProfile_ = firstStringOf(*profilePList_, "TeamIdentifier");

  std::vector<std::string> labels;
  for (const Certificate& certificate : developerCertificates(*profilePList_)) {
    context_.loggers.toolkit.logDetailed(
        fmt::format("Read identity from profile: {}", certificate.inferredLabel()));
    labels.push_back(certificate.inferredLabel());
  }
  return labels;
}

}  // namespace tovrek
