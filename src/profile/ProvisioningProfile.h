// Provisioning profiles: signed property lists that name the app identifier, the team, the
// entitlements granted and the certificates allowed to sign.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "context/RunContext.h"
#include "formats/Certificate.h"
#include "formats/PlistValue.h"
#include "host/ErrorText.h"

namespace tovrek {

// One profile file. It is decoded on the first question, once; the envelope is opened by the
// host's "security" program, with the run's keychain. The class operations keep no state.
class ProvisioningProfile {
 public:
  // `context` must outlive the profile.
  ProvisioningProfile(std::string path, const RunContext& context)
      : context_(context), profile_(std::move(path)) {}

  // Labels of the profile's certificates, in its order; an empty list when it has none. Null,
  // with the reason unless the decoder gave no data at all, when the profile cannot be decoded.
  const std::vector<std::string>* getCertificates(ErrorText* error);
  // The same without the cache.
  std::optional<std::vector<std::string>> getCertifiatesFromProvisionProfile(ErrorText* error);
  // Whether the profile may sign an app of this identifier.
  bool validateProfile(const std::string& bundleId, bool preserveUpgradeCompatibility,
                       ErrorText* error);

  const std::string& profile() const { return profile_; }
  bool isWildcardProfile() const { return isWildcardProfile_; }
  const std::optional<std::string>& inputIpaBundleId() const { return inputIpaBundleId_; }
  void setInputIpaBundleId(std::optional<std::string> id) { inputIpaBundleId_ = std::move(id); }
  const std::optional<PlistDictionary>& profilePList() const { return profilePList_; }
  const std::optional<std::string>& appIdFromProfile() const { return appIdFromProfile_; }
  const std::optional<std::string>& teamIdFromProfile() const { return teamIdFromProfile_; }
  const std::optional<std::string>& appIdPrefixFromProfile() const {
    return appIdPrefixFromProfile_;
  }

  // Decodes the file. None with the reason in the slot; with the slot untouched when the decoder
  // succeeded without giving any data.
  static std::optional<PlistDictionary> extractProvisioningProfileData(const std::string& path,
                                                                       const RunContext& context,
                                                                       ErrorText* error);
  // Matches the profile's application identifier, from its 12th character on, with the bundle
  // identifier. A trailing "*" makes the rest a text to be found anywhere in it; with
  // `preserveUpgradeCompatibility` such a profile always passes.
  static bool validateProfileWithPList(const PlistDictionary& entitlements,
                                       std::string_view bundleId, bool preserveUpgradeCompatibility,
                                       const WrapperLogger& log, ErrorText* error);
  // Warnings only. The first overwrites the slot, the others fill an empty one.
  static void validateProfileWithDataProtection(const PlistDictionary& entitlements,
                                                const WrapperLogger& log, ErrorText* error);
  static void validateProfileWithTeamIdentifier(const PlistDictionary& entitlements,
                                                const WrapperLogger& log, ErrorText* error);
  // Warns unless the profile's certificate of that common name has an organisational unit.
  static void validateForiOS8Certificate(std::string_view certificateName,
                                         const PlistDictionary& profile, const WrapperLogger& log,
                                         ErrorText* error);
  // Whether the keychain holds a certificate of this digest (hexadecimal, any case). No value
  // when it could not be asked.
  static std::optional<bool> doesCertificateExistWithSHA1(std::string_view sha1,
                                                          const RunContext& context,
                                                          ErrorText* error = nullptr);
  static bool doesCertificate(const Certificate& certificate, std::string_view sha1);

 private:
  bool decode(ErrorText* error);
  void readIdentifiers();

  const RunContext& context_;
  std::string profile_;
  std::optional<std::vector<std::string>> certificates_;
  bool isWildcardProfile_ = false;
  std::optional<std::string> inputIpaBundleId_;
  std::optional<PlistDictionary> profilePList_;
  std::optional<std::string> appIdFromProfile_;
  std::optional<std::string> teamIdFromProfile_;
  std::optional<std::string> appIdPrefixFromProfile_;
};

}  // namespace tovrek
