// Provisioning profiles out of bytes.
#include "formats/cms_content.h"
#include "formats/entitlement_keys.h"
#include "inspect/readers.h"

namespace tovrek::inspect {
namespace {

// What people call a profile, by whom it admits.
const char* kindOf(const device::Profile& profile) {
  if (profile.allDevices) return "in-house";
  if (profile.isForStore()) return "store";
  const PlistValue* debugging = profile.entitlements.find(entitlement::kGetTaskAllow);
  const bool allowed = debugging != nullptr && debugging->boolean() != nullptr;
  return allowed && *debugging->boolean() ? "development" : "ad hoc";
}

}  // namespace

std::optional<ProfileDetails> readProfileDetails(std::string_view bytes, std::string path,
                                                 ErrorText* error) {
  const auto content = cmsContent(bytes, error);
  if (!content) return std::nullopt;
  const auto plist = parsePlist(*content, error);
  if (!plist) return std::nullopt;
  if (plist->dictionary() == nullptr) {
    fail(error, "it holds no dictionary");
    return std::nullopt;
  }
  ProfileDetails details;
  details.path = std::move(path);
  details.grants = device::profileOf(*plist->dictionary());
  details.uuid = stringForKeyOr(*plist->dictionary(), "UUID", "");
  details.teamName = stringForKeyOr(*plist->dictionary(), "TeamName", "");
  details.kind = kindOf(details.grants);
  return details;
}

}  // namespace tovrek::inspect
