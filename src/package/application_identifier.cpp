#include "package/application_identifier.h"

#include <fmt/format.h>

#include "formats/entitlement_keys.h"
#include "host/paths.h"
#include "package/embedded_profile.h"
#include "package/signed_entitlements.h"

namespace tovrek {
namespace {

// An identifier for any app of a team names this one: what stands in front of the first "." stays
// and the bundle identifier follows.
std::optional<std::string> withoutWildcard(const std::string& identifier,
                                           const std::string& bundleId) {
  if (identifier.find('*') == std::string::npos) return identifier;
  if (bundleId.empty()) return std::nullopt;
  const size_t dot = identifier.find('.');
  const size_t kept = dot == std::string::npos ? identifier.size() - 1 : dot + 1;
  return identifier.substr(0, kept) + bundleId;
}

// The text of a value that may be missing, empty or of another kind.
std::optional<std::string> lettersOf(const std::optional<PlistValue>& value) {
  if (!value || value->string() == nullptr || value->string()->empty()) return std::nullopt;
  return *value->string();
}

}  // namespace

std::optional<std::string> applicationIdentifier(const AppBundle& bundle,
                                                 const std::string& bundleId,
                                                 const std::optional<std::string>& teamId,
                                                 const WrapperLogger& logger) {
  const std::string& path = bundle.path();
  auto identifier = lettersOf(ReadEmbeddedProfile(joinPath(path, "embedded.mobileprovision"),
                                                  "Entitlements.application-identifier", logger));
  if (!identifier) {
    logger.logError(
        "Warning:- Unable to get app identifier from embedded.mobileprovision, trying embedded "
        "entitlements.");
    identifier = lettersOf(ReadEmbeddedEntitlements(bundle.executablePath().value_or(path),
                                                    entitlement::kApplicationIdentifier, logger));
  }
  if (!identifier) {
    identifier = teamId ? fmt::format("{}.{}", *teamId, bundleId) : bundleId;
    logger.logError(fmt::format(
        "Warning:- Unable to get app identifier from embedded entitlements, reverting to bundle "
        "identifier {} (teamId = {}).",
        bundleId, teamId.value_or("(null)")));
  }
  return withoutWildcard(*identifier, bundleId);
}

std::string prefixOf(std::string_view applicationIdentifier) {
  return std::string(applicationIdentifier.substr(0, applicationIdentifier.find('.')));
}

}  // namespace tovrek
