#include "package/adal_settings.h"

#include <fmt/format.h>

#include "package/value_text.h"

namespace tovrek {
namespace {

constexpr char kClientKey[] = "ADALClientId";
constexpr char kResourceKey[] = "NSGADALResource";

// Registered for the management server's multi-tenant directory application; settings of this
// build, to be exchanged by whoever deploys another directory.
constexpr char kDefaultClientId[] = "6b1f0c52-3e84-4d0a-9a7b-58c2f1d6e493";
constexpr char kDefaultResource[] =
    "https://directory.orvane.example/2d9e47a1-70c5-4b38-8f16-c3a5be02d874";

struct Target {
  WexInfoPlistModifier& infoPlist;
  const WrapperLogger& logger;
};

// Stores one setting and logs how that went.
bool store(const Target& target, const char* key, const std::string& value, bool update,
           const std::string& successText, const std::string& failureText) {
  const bool stored = target.infoPlist.intuneMAMSettingsAddKey(key, value, update);
  if (stored) {
    target.logger.logBasic(successText);
  } else {
    target.logger.logError(failureText);
  }
  return stored;
}

bool hasLetters(const std::optional<std::string>& text) {
  return text && !text->empty();
}

bool replaceClientId(const Target& target, const std::optional<std::string>& adalClientID) {
  if (!adalClientID) return true;  // the app's own value stands
  if (!adalClientID->empty()) {
    return store(
        target, kClientKey, *adalClientID, true,
        fmt::format("Explicit AdalClientId parameter {} was updated in info.plist", *adalClientID),
        fmt::format(
            "Error:- Could not update with explicit AdalClientId parameter {} in info.plist",
            *adalClientID));
  }
  return store(
      target, kClientKey, kDefaultClientId, true,
      fmt::format("Default NV WEX Multi Tenant AdalClientId {} was updated in info.plist",
                  kDefaultClientId),
      fmt::format(
          "Error:- Could not update info.plist with default NV WEX Multi Tenant AdalClientId {}",
          kDefaultClientId));
}

bool addClientId(const Target& target, const std::optional<std::string>& adalClientID) {
  if (hasLetters(adalClientID)) {
    return store(
        target, kClientKey, *adalClientID, false,
        fmt::format("Explicit AdalClientId parameter {} was stored in info.plist", *adalClientID),
        fmt::format("Error:- Could not store explicit AdalClientId parameter {} in info.plist",
                    *adalClientID));
  }
  return store(
      target, kClientKey, kDefaultClientId, false,
      fmt::format("Default NV WEX Multi Tenant AdalClientId {} was stored in info.plist",
                  kDefaultClientId),
      fmt::format(
          "Error:- Could not store default NV WEX Multi Tenant AdalClientId {} in info.plist",
          kDefaultClientId));
}

bool storeResource(const Target& target, const std::optional<std::string>& nsgResource,
                   bool present) {
  if (hasLetters(nsgResource)) {
    return store(
        target, kResourceKey, *nsgResource, true,
        fmt::format("explicit adalNSGResource parameter {} was stored in info.plist", *nsgResource),
        fmt::format("Error:- Could not store explicit adalNSGResource parameter {} in info.plist",
                    *nsgResource));
  }
  const bool stored =
      store(target, kResourceKey, kDefaultResource, false,
            fmt::format("default NV NSG ADAL Multi Tenant Resource {} was stored in info.plist",
                        kDefaultResource),
            fmt::format("Error:- Could not store default NV NSG ADAL Multi Tenant Resource {} in "
                        "info.plist",
                        kDefaultResource));
  // A resource of the app's own that was kept is no reason to refuse the app.
  return stored || present;
}

}  // namespace

bool updateInfoPlistObject(WexInfoPlistModifier& infoPlist,
                           const std::optional<std::string>& adalClientID,
                           const std::optional<std::string>& nsgResource,
                           const WrapperLogger& logger) {
  const Target target{infoPlist, logger};
  bool stored = true;
  if (const auto client = infoPlist.intuneMAMSettingsObjectForKey(kClientKey)) {
    logger.logBasic(fmt::format("IntuneMAMSettings AdalClientId {} setting found in info.plist",
                                returnString(&*client)));
    stored = replaceClientId(target, adalClientID);
  } else {
    logger.logBasic("IntuneMAMSettings AdalClientId setting not found in info.plist");
    stored = addClientId(target, adalClientID);
  }
  const auto resource = infoPlist.intuneMAMSettingsObjectForKey(kResourceKey);
  if (resource) {
    logger.logBasic(
        fmt::format("IntuneMAMSettings NSG ADAL Resource  {} setting found in info.plist",
                    returnString(&*resource)));
  } else {
    logger.logBasic("IntuneMAMSettings NSG ADAL Resource setting not found in info.plist");
  }
  return storeResource(target, nsgResource, resource.has_value()) && stored;
}

}  // namespace tovrek
