#include "inspect/result_forecast.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "device/code_judgement.h"
#include "device/installation.h"
#include "formats/entitlement_keys.h"
#include "host/paths.h"
#include "inspect/insertion_forecast.h"
#include "package/new_entitlements.h"

namespace tovrek::inspect {
namespace {

// What is found against code that keeps its signature, whoever signs the app around it.
constexpr std::string_view kKept[] = {
    device::kSignatureMissing,    device::kSignatureAdhoc,
    device::kSignatureInvalid,    device::kChainIncomplete,
    device::kChainNotTrusted,     device::kCertificateDates,
    device::kCertificatePurpose,  device::kProfileMissing,
    device::kProfileUnreadable,   device::kProfileDates,
    device::kProfilePlatform,     device::kProfileStore,
    device::kIdentifierMissing,   device::kIdentifierNotInProfile,
    device::kIdentifierMismatch,  device::kCertificateNotInProfile,
    device::kEntitlementsMissing, device::kEntitlementNotGranted};

constexpr const char* kIdentifierKey = "CFBundleIdentifier";

// The signature of the slice that stands for all.
const SliceSignature* signatureOf(const CodeObject& object) {
  const Slice* chosen = nullptr;
  for (const Slice& slice : object.slices) {
    if (chosen == nullptr || (slice.architecture == "arm64" && chosen->architecture != "arm64")) {
      chosen = &slice;
    }
  }
  return chosen != nullptr && chosen->signature ? &*chosen->signature : nullptr;
}

// Whether code at this path, from a bundle that is signed, is signed along with the bundle's
// frameworks: those directly below, and theirs in turn.
bool isSignedAsFramework(std::string_view path) {
  constexpr std::string_view kFolder = "Frameworks/";
  if (!path.starts_with(kFolder)) return false;
  for (size_t at = kFolder.size(); at <= path.size();) {
    const size_t end = std::min(path.find('/', at), path.size());
    const std::string extension = pathExtension(path.substr(at, end - at));
    if (extension == "framework" || extension == "dylib") {
      return end == path.size() || isSignedAsFramework(path.substr(end + 1));
    }
    at = end + 1;
  }
  return false;
}

class ResultForecast {
 public:
  ResultForecast(const Subject& subject, const NewSignature& signature, const WrapWish& wish,
                 const Settings& settings, double now,
                 const std::vector<device::StoredProfile>& stored)
      : subject_(subject),
        app_(*subject.app),
        signature_(signature),
        wish_(wish),
        now_(now),
        profiles_(stored) {
    if (const PlistDictionary* info = app_.main().info ? &*app_.main().info : nullptr) {
      const bool isSame = signature_.bundleId == app_.identifier;
      former_ = isSame ? stringForKeyOr(*info, "WEXCFBundleIdentifier", app_.identifier)
                       : app_.identifier;
    }
    renames_ = settings.renameExtensions && !former_.empty() && former_ != signature_.bundleId;
    fits_ = !settings.profilesFolder.empty() || renames_;
    profiles_.push_back({signature_.profile.path, signature_.profile.grants});
  }

  device::Findings run() {
    for (const CodeObject& object : app_.code) {
      if (!takesProfile(object)) continue;
      names_.insert(object.identifier);
      fitted_.insert(object.path);
    }
    names_.insert(former_);
    judgeMain();
    for (const CodeObject& object : app_.code) {
      const bool isThere = !object.path.empty() && !object.executable.empty();
      if (isThere && !isStripped(object.path, wish_)) judgeNested(object);
    }
    return std::move(findings_);
  }

 private:
  static bool takesProfile(const CodeObject& object) {
    return object.kind == CodeKind::kExtension || object.kind == CodeKind::kWatchApp;
  }
  std::string placeOf(const std::string& path) const { return joinPath(app_.folder, path); }
  void add(device::Findings found) { std::ranges::move(found, std::back_inserter(findings_)); }
  std::string renamed(const std::string& identifier) const {
    const bool isMeant = identifier == former_ || identifier.starts_with(former_ + ".");
    return renames_ && isMeant ? signature_.bundleId + identifier.substr(former_.size())
                               : identifier;
  }
  const Certificate& leaf() const { return signature_.chain.leaf(); }
  std::string newTeam() const {
    const std::string team = signature_.chain.teamId();
    return team.empty() ? leaf().organizationalUnit().value_or("") : team;
  }

  void judgeMain() {
    device::judgeSigner(signature_.chain, app_.folder, now_, &findings_);
    const device::Profile& grants = signature_.profile.grants;
    const SliceSignature* old = signatureOf(app_.main());
    const std::string appId =
        newApplicationIdentifier(grants.entitlements, signature_.bundleId, wish_.isUpgrade);
    const auto plist =
        parsePlist(newEntitlements(silentLogger(), grants.entitlements,
                                   old ? old->entitlements : std::nullopt, appId, nullptr));
    device::BundleFacts facts{app_.folder, signature_.bundleId, leaf(), PlistDictionary()};
    if (plist && plist->dictionary() != nullptr) facts.entitlements = *plist->dictionary();
    add(device::judgeProfile(grants, facts, now_));
  }

  void judgeNested(const CodeObject& object) {
    if (!takesProfile(object)) {
      if (!isResigned(object)) keepSignature(object);
      return;
    }
    const device::StoredProfile* chosen = fits_ ? chooseProfile(object) : nullptr;
    if (chosen != nullptr) {
      judgeFitted(object, chosen->profile);
    } else if (fits_ || isExtensionInPlugIns(object.path)) {
      judgeWithOwnProfile(object);
    } else {
      keepSignature(object);
    }
    judgeFamilyOf(object);
  }

  static bool isExtensionInPlugIns(const std::string& path) {
    return path.starts_with("PlugIns/") && pathExtension(path) == "appex";
  }

  // The app's frameworks are signed anew, and those of the extensions that are fitted.
  bool isResigned(const CodeObject& object) const {
    const std::string& path = object.path;
    if (isSignedAsFramework(path)) return true;
    for (size_t end = path.find('/'); fits_ && end != path.npos; end = path.find('/', end + 1)) {
      const bool isHeld = fitted_.contains(path.substr(0, end));
      if (isHeld && isSignedAsFramework(path.substr(end + 1))) return true;
    }
    return false;
  }

  // What was found against it stays true, and the team is to be the new one.
  void keepSignature(const CodeObject& object) {
    const std::string place = placeOf(object.path);
    for (const Finding& finding : subject_.findings) {
      const bool staysTrue = std::ranges::find(kKept, finding.code) != std::end(kKept);
      if (finding.place != place || !staysTrue || finding.severity != Severity::kError) continue;
      findings_.push_back({findingKind(finding.code)->code, place, finding.reason});
    }
    const SliceSignature* old = signatureOf(object);
    if (old == nullptr || old->chain.empty()) return;
    const std::string team =
        old->team.empty() ? old->chain.front().organizationalUnit().value_or("") : old->team;
    if (team == newTeam()) return;
    findings_.push_back(
        {device::kTeamMismatch, place,
         fmt::format("it stays signed by the team {}, the app is to be signed by {}", team,
                     newTeam())});
  }

  const device::StoredProfile* chooseProfile(const CodeObject& object) const {
    device::ProfileWish wish;
    wish.bundleIdentifier = renamed(object.identifier);
    wish.isSigner = [&](const Certificate& each) { return each.der() == leaf().der(); };
    wish.forStore = signature_.profile.grants.isForStore();
    wish.now = now_;
    return device::bestProfile(profiles_, wish);
  }

  // Entitlements are made from what the profile grants.
  void judgeFitted(const CodeObject& object, const device::Profile& profile) {
    const std::string identifier = renamed(object.identifier);
    PlistDictionary entitlements;
    entitlements.set(entitlement::kApplicationIdentifier, profile.prefix() + "." + identifier);
    add(device::judgeProfile(profile, {placeOf(object.path), identifier, leaf(), entitlements},
                             now_));
  }

  void judgeWithOwnProfile(const CodeObject& object) {
    const std::string place = placeOf(object.path);
    if (!object.profile) {
      findings_.push_back({device::kProfileMissing, place, "it has no provisioning profile"});
      return;
    }
    const SliceSignature* old = signatureOf(object);
    add(device::judgeProfile(object.profile->grants,
                             {place, renamed(object.identifier), leaf(),
                              old != nullptr ? old->entitlements : std::nullopt},
                             now_));
  }

  void judgeFamilyOf(const CodeObject& object) {
    device::Family family{signature_.bundleId, signature_.bundleId};
    size_t depth = 0;
    for (const CodeObject& outer : app_.code) {
      const bool isAround = outer.kind == CodeKind::kWatchApp && outer.path.size() > depth &&
                            object.path.starts_with(outer.path + "/");
      if (!isAround) continue;
      depth = outer.path.size();
      family.enclosing = renamed(outer.identifier);
    }
    PlistDictionary info = object.info.value_or(PlistDictionary());
    renameTexts(&info);
    info.set(kIdentifierKey, renamed(object.identifier));
    add(device::judgeFamily(placeOf(object.path), info, family));
  }

  // Names of the app and its bundles, where they stand as a whole text.
  void renameTexts(PlistDictionary* info) const {
    std::vector<std::string> keys;
    for (const auto& entry : *info) keys.push_back(entry.first);
    for (const std::string& key : keys) {
      PlistValue* value = info->find(key);
      if (value->string() != nullptr && names_.contains(*value->string())) {
        *value = renamed(*value->string());
      } else if (value->dictionary() != nullptr) {
        renameTexts(value->dictionary());
      }
    }
  }

  const Subject& subject_;
  const App& app_;
  const NewSignature& signature_;
  const WrapWish& wish_;
  const double now_;
  std::vector<device::StoredProfile> profiles_;
  std::string former_;  // the app's identifier, before a first wrap too
  bool renames_ = false, fits_ = false;
  std::set<std::string> names_;
  std::set<std::string> fitted_;  // paths of the bundles that take a profile
  device::Findings findings_;
};

}  // namespace

bool isStripped(const std::string& path, const WrapWish& wish) {
  return !wish.keepsExtensions && (path.starts_with("PlugIns/") || path.starts_with("Watch/"));
}

device::Findings forecastResult(const Subject& subject, const NewSignature& signature,
                                const WrapWish& wish, const Settings& settings, double now,
                                const std::vector<device::StoredProfile>& stored) {
  return ResultForecast(subject, signature, wish, settings, now, stored).run();
}

}  // namespace tovrek::inspect
