#include "device/Profile.h"

#include <algorithm>
#include <climits>

#include "device/grants.h"
#include "formats/entitlement_keys.h"
#include "formats/openssl_owners.h"
#include "profile/developer_certificates.h"

namespace tovrek::device {
namespace {

// Far above any profile, which lists some hundred certificates and devices.
constexpr uint64_t kLargestProfile = 16 << 20;

std::vector<std::string> textsIn(const PlistDictionary& plist, std::string_view key) {
  std::vector<std::string> texts;
  const PlistValue::Array* list = arrayForKey(plist, key);
  if (list == nullptr) return texts;
  for (const PlistValue& entry : *list) {
    if (entry.string() != nullptr) texts.push_back(*entry.string());
  }
  return texts;
}

double timeIn(const PlistDictionary& plist, std::string_view key) {
  const PlistValue* value = plist.find(key);
  return value != nullptr && value->date() != nullptr ? value->date()->secondsSince1970 : 0;
}

// The content of a signed message; empty for anything else.
std::string signedContent(std::string_view message) {
  if (message.size() > LONG_MAX) return "";
  const unsigned char* at = asBytes(message);
  const CmsOwner cms(d2i_CMS_ContentInfo(nullptr, &at, static_cast<long>(message.size())));
  const bool isSigned = cms && OBJ_obj2nid(CMS_get0_type(cms.get())) == NID_pkcs7_signed;
  ASN1_OCTET_STRING** content = isSigned ? CMS_get0_content(cms.get()) : nullptr;
  ERR_clear_error();
  if (content == nullptr || *content == nullptr) return "";
  const unsigned char* data = ASN1_STRING_get0_data(*content);
  return std::string(data, data + ASN1_STRING_length(*content));
}

}  // namespace

std::string Profile::prefix() const {
  return applicationIdentifier.substr(0, applicationIdentifier.find('.'));
}

bool Profile::lists(const Certificate& certificate) const {
  return std::ranges::any_of(
      certificates, [&](const Certificate& each) { return each.der() == certificate.der(); });
}

bool Profile::covers(const std::string& bundleIdentifier) const {
  return !bundleIdentifier.empty() &&
         admits(applicationIdentifier, prefix() + "." + bundleIdentifier);
}

bool Profile::isForDevices() const {
  return platforms.empty() || std::ranges::any_of(platforms, [](const std::string& platform) {
           return platform == "iOS" || platform == "watchOS";
         });
}

Profile profileOf(const PlistDictionary& plist) {
  Profile profile;
  profile.name = stringForKeyOr(plist, "Name", "");
  if (const PlistDictionary* granted = dictionaryForKey(plist, "Entitlements")) {
    profile.entitlements = *granted;
  }
  profile.applicationIdentifier =
      stringForKeyOr(profile.entitlements, entitlement::kApplicationIdentifier, "");
  const auto teams = textsIn(plist, "TeamIdentifier");
  profile.team = stringForKeyOr(profile.entitlements, entitlement::kTeamIdentifier,
                                teams.empty() ? std::string() : teams.front());
  profile.created = timeIn(plist, "CreationDate");
  profile.expires = timeIn(plist, "ExpirationDate");
  profile.platforms = textsIn(plist, "Platform");
  profile.certificates = developerCertificates(plist);
  const PlistValue* all = plist.find("ProvisionsAllDevices");
  profile.allDevices = all != nullptr && all->boolean() != nullptr && *all->boolean();
  if (arrayForKey(plist, "ProvisionedDevices") != nullptr) {
    profile.devices = textsIn(plist, "ProvisionedDevices");
  }
  return profile;
}

std::optional<Profile> readProfile(const std::string& path, ErrorText* error,
                                   const signing::FileSource& files) {
  std::string message;
  if (!files.read(path, &message, kLargestProfile, error)) return std::nullopt;
  const auto plist = parsePlist(signedContent(message));
  if (!plist || plist->dictionary() == nullptr) {
    fail(error, "it is no provisioning profile");
    return std::nullopt;
  }
  return profileOf(*plist->dictionary());
}

}  // namespace tovrek::device
