#include "converter/nested_entitlements.h"

#include "converter/common.h"
#include "device/grants.h"
#include "formats/entitlement_keys.h"

namespace tovrek::converter {
namespace {

constexpr std::string_view kGroupPrefix = "group.";

// Texts of the old team become those of the new one.
PlistValue repointed(const PlistValue& value, const std::string& from, const std::string& to) {
  if (const std::string* text = value.string()) {
    return text->starts_with(from + ".") ? to + text->substr(from.size()) : *text;
  }
  const PlistValue::Array* list = value.array();
  if (!list) return value;
  PlistValue::Array result;
  for (const PlistValue& each : *list) result.push_back(repointed(each, from, to));
  return result;
}

PlistValue renamedGroups(const PlistValue& granted, const PlistValue& wanted,
                         const Renaming& renamed) {
  const PlistValue::Array* list = wanted.array();
  if (!list) return wanted;
  PlistValue::Array result;
  for (const PlistValue& each : *list) {
    const std::string* name = each.string();
    const bool isGroup = name && name->starts_with(kGroupPrefix);
    const PlistValue other =
        isGroup ? std::string(kGroupPrefix) + renamed(name->substr(kGroupPrefix.size())) : each;
    const bool changes = !device::grantedPart(granted, each) && device::grantedPart(granted, other);
    result.push_back(changes ? other : each);
  }
  return result;
}

}  // namespace

bool isFixed(const PlistValue& granted) {
  const std::string* text = granted.string();
  return granted.boolean() || (text && text->find('*') == std::string::npos);
}

PlistDictionary nestedEntitlements(const device::Profile& profile, const PlistDictionary& old,
                                   const std::string& bundleIdentifier, const Renaming& renamed,
                                   std::vector<std::string>* lost) {
  PlistDictionary result;
  const std::string oldPrefix =
      prefixOf(stringForKeyOr(old, entitlement::kApplicationIdentifier, ""));
  for (const auto& [key, value] : old) {
    const PlistValue* granted = profile.entitlements.find(key);
    if (granted && isFixed(*granted)) continue;  // below
    if (key == entitlement::kApplicationIdentifier) continue;
    PlistValue wanted = oldPrefix.empty() ? value : repointed(value, oldPrefix, profile.prefix());
    if (granted && key == entitlement::kAppGroups)
      wanted = renamedGroups(*granted, wanted, renamed);
    const auto part = granted ? device::grantedPart(*granted, wanted) : std::nullopt;
    if (part) result.set(key, *part);
    if ((!part || *part != wanted) && key != kStoreReports) lost->push_back(key);
  }
  for (const auto& [key, granted] : profile.entitlements) {
    if (isFixed(granted)) result.set(key, granted);
  }
  result.set(entitlement::kApplicationIdentifier, profile.prefix() + "." + bundleIdentifier);
  return result;
}

}  // namespace tovrek::converter
