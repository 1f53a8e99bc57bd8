#include "package/new_entitlements.h"

#include <fmt/format.h>

#include <algorithm>

#include "formats/entitlement_keys.h"
#include "host/paths.h"
#include "host/printable.h"
#include "package/application_identifier.h"
#include "package/value_text.h"

namespace tovrek {
namespace {

constexpr const char* kICloudIdentifiers[] = {entitlement::kICloudDevelopmentContainers,
                                              entitlement::kICloudContainers,
                                              entitlement::kKeyValueStore};

using OptionalDictionary = std::optional<PlistDictionary>;

bool isWildcard(std::string_view identifier) {
  return identifier.find(".*") != std::string_view::npos;
}

bool holdsKey(const OptionalDictionary& dictionary, std::string_view key) {
  return dictionary && dictionary->contains(key);
}

std::optional<std::string> stringIn(const OptionalDictionary& dictionary, std::string_view key) {
  const std::string* text = dictionary ? stringForKey(*dictionary, key) : nullptr;
  return text ? std::optional(*text) : std::nullopt;
}

PlistValue::Array listIn(const PlistDictionary& dictionary, std::string_view key) {
  const PlistValue::Array* list = arrayForKey(dictionary, key);
  return list ? *list : PlistValue::Array();
}

bool holdsText(const PlistValue::Array& list, const std::string& text) {
  return std::any_of(list.begin(), list.end(), [&](const PlistValue& entry) {
    return entry.string() && *entry.string() == text;
  });
}

// Fits one list of identifiers to the new application identifier.
void MergeAppIDGroupsWithOldEntitlement(const WrapperLogger& log,
                                        const std::optional<PlistDictionary>& oldEntitlements,
                                        PlistDictionary* newEntitlements, const std::string& key,
                                        const std::optional<std::string>& oldAppId,
                                        const std::optional<std::string>& oldAppIdPrefix,
                                        const std::string& newAppId) {
  const PlistValue::Array* oldList = oldEntitlements ? arrayForKey(*oldEntitlements, key) : nullptr;
  if (!oldList) {
    PlistValue::Array list = listIn(*newEntitlements, key);
    const auto wildcard = std::find_if(list.begin(), list.end(), [](const PlistValue& entry) {
      return entry.string() && isWildcard(*entry.string());
    });
    if (wildcard != list.end()) {
      list.erase(wildcard);
      list.emplace_back(newAppId);
    }
    newEntitlements->set(key, std::move(list));
    return;
  }

  // The old entries keep their prefix here: the whole text is re-pointed in the end.
  PlistValue::Array list = *oldList;
  const bool holdsOwn = oldAppId && oldAppIdPrefix &&
                        (holdsText(list, *oldAppId) || holdsText(list, *oldAppIdPrefix + ".*"));
  if (!holdsOwn) {
    log.logWarning(fmt::format(
        "WARNING: Existing entitlement in code signature does not contain its own app ID in {}. "
        "Orvane requires to access the app's own keychain. Adding this missing entitlement.",
        key));
    list.emplace_back(newAppId);
  }
  newEntitlements->set(key, std::move(list));
}

void keepAssociatedDomains(const OptionalDictionary& old, PlistDictionary* entitlements) {
  const PlistValue* domains = old ? old->find(entitlement::kAssociatedDomains) : nullptr;
  if (domains && entitlements->contains(entitlement::kAssociatedDomains)) {
    entitlements->set(entitlement::kAssociatedDomains, *domains);
  }
}

void warnOfMissingEntitlements(const WrapperLogger& log, const OptionalDictionary& old,
                               const PlistDictionary& profile, ErrorText* error) {
  if (!old) return;
  for (const auto& [key, value] : *old) {
    if (key == entitlement::kBetaReports || profile.contains(key)) continue;
    log.logWarning(fmt::format(
        "WARNING: Missing a required entitlement ({}) in the specified provisioning profile.",
        key));
    fail(error,
         "Your mobile app was created successfully. However, your provisioning profile does not "
         "include entitlements required by the app. The app might not function properly. See the "
         "log file for details.");
  }
}

void completeKeychainGroups(const WrapperLogger& log, const std::string& newAppId,
                            const std::string& teamPrefix, bool isExplicit,
                            PlistDictionary* entitlements) {
  PlistValue::Array groups = listIn(*entitlements, entitlement::kKeychainGroups);
  const bool hasOwn = std::any_of(groups.begin(), groups.end(), [&](const PlistValue& group) {
    return group.string() && equalsIgnoringCase(*group.string(), newAppId);
  });
  if (!hasOwn) {
    log.logDetailed(fmt::format(
        "Local keychain access entitlement for new AppID ({}) is not present - adding it",
        newAppId));
    groups.emplace_back(newAppId);
  }
  groups.emplace_back(teamPrefix + "." + kManagementGroup);
  if (isExplicit) groups.emplace_back(teamPrefix + ".*");
  for (const PlistValue& group : listIn(*entitlements, entitlement::kAppGroups)) {
    if (group.string()) groups.emplace_back(teamPrefix + "." + *group.string());
  }
  entitlements->set(entitlement::kKeychainGroups, std::move(groups));
}

void fitICloud(const OptionalDictionary& old, PlistDictionary* entitlements) {
  for (const char* key : kICloudIdentifiers) {
    if (!holdsKey(old, key)) entitlements->remove(key);
  }
  entitlements->remove(entitlement::kICloudEnvironment);
  if (holdsKey(old, entitlement::kICloudServices)) {
    entitlements->set(entitlement::kICloudServices, *old->find(entitlement::kICloudServices));
  }
}

// A property list for the log: its lines stay, line breaks in its strings do not.
std::string shownDocument(std::string_view xml) {
  std::string result;
  while (!xml.empty()) {
    const size_t length = std::min(xml.find('<', 1), xml.size());
    const std::string_view part = xml.substr(0, length);
    const bool inString = part.starts_with("<string>") || part.starts_with("<key>");
    result += inString ? printable(part) : std::string(part);
    xml.remove_prefix(length);
  }
  return result;
}

// Re-points everything from the old team to the new one: in the text as a whole, so that
// identifiers inside of other values move along.
std::string repointPrefix(const WrapperLogger& log, const std::string& xml,
                          const std::optional<std::string>& oldPrefix,
                          const std::string& teamPrefix) {
  log.logDetailed(fmt::format("Replacing {} to {}", oldPrefix.value_or("(null)"), teamPrefix));
  const bool bothPresent = oldPrefix && !oldPrefix->empty() && !teamPrefix.empty();
  std::string result = bothPresent ? replaceAll(xml, *oldPrefix, teamPrefix) : xml;
  log.logDetailed("Final entitlement XML after string replacement is " + shownDocument(result),
                  LineBreaks::kKept);
  return result;
}

}  // namespace

std::string newApplicationIdentifier(const PlistDictionary& profile,
                                     const std::optional<std::string>& bundleId, bool isUpgrade) {
  const std::string granted = stringForKeyOr(profile, entitlement::kApplicationIdentifier, "");
  if (!isWildcard(granted)) return granted;
  const std::string shownId = bundleId.value_or("(null)");
  if (!isUpgrade) return prefixOf(granted) + "." + shownId;
  return granted.substr(0, granted.size() - 1) + shownId;
}

std::string newEntitlements(const WrapperLogger& log, const PlistDictionary& profile,
                            const std::optional<PlistDictionary>& old, const std::string& newAppId,
                            ErrorText* error) {
  const std::string granted = stringForKeyOr(profile, entitlement::kApplicationIdentifier, "");
  const std::string teamPrefix = prefixOf(granted);
  const auto oldAppId = stringIn(old, entitlement::kApplicationIdentifier);
  const auto oldPrefix = oldAppId ? std::optional(prefixOf(*oldAppId)) : std::nullopt;

  PlistDictionary entitlements = profile;
  keepAssociatedDomains(old, &entitlements);
  warnOfMissingEntitlements(log, old, profile, error);
  MergeAppIDGroupsWithOldEntitlement(log, old, &entitlements, entitlement::kKeychainGroups,
                                     oldAppId, oldPrefix, newAppId);
  completeKeychainGroups(log, newAppId, teamPrefix, !isWildcard(granted), &entitlements);
  entitlements.set(entitlement::kApplicationIdentifier, newAppId);
  fitICloud(old, &entitlements);

  log.logBasic("Fixing appID in the new entitlement string...");
  const std::string xml = serializePlist(entitlements, PlistFormat::kXml);
  log.logDetailed("new entitlement XML is " + shownDocument(xml), LineBreaks::kKept);
  return repointPrefix(log, xml, oldPrefix, teamPrefix);
}

}  // namespace tovrek
