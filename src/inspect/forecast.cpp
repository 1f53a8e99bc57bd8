#include "inspect/forecast.h"

#include <fmt/format.h>

#include <algorithm>

#include "device/grants.h"
#include "host/files.h"
#include "host/paths.h"
#include "inspect/identity_forecast.h"
#include "inspect/insertion_forecast.h"
#include "inspect/readers.h"
#include "inspect/result_forecast.h"
#include "inspect/text.h"
#include "package/app_links.h"
#include "profile/ProvisioningProfile.h"
#include "settings/settings_file.h"

namespace tovrek::inspect {
namespace {

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// The frameworks of the SDK; two of them count only together.
bool linksSdk(const Slice& slice) {
  const auto loads = [&](std::string_view name) {
    return std::ranges::any_of(slice.commands,
                               [&](const std::string& words) { return contains(words, name); });
  };
  return loads("WEX.framework") || loads("WEXNetworkOnly.framework") ||
         loads("WexFrameworkLoader.framework") ||
         (loads("ORVMAMCore.framework") && loads("ORVMAMAppCore.framework"));
}

// The checks in the order of a wrap. Each tells of what it finds and leaves the others be.
class Forecast {
 public:
  Forecast(const WrapWish& wish, const Rules& rules, const OpenApp& open, const Subject& subject)
      : wish_(wish),
        rules_(rules),
        open_(open),
        app_(*subject.app),
        subject_(subject),
        identifier_(wish.bundleId.value_or("").empty() ? app_.identifier : *wish.bundleId) {}

  WrapForecast run() {
    readRules();
    chooseProfile();
    std::optional<signing::CertificateChain> chain;
    if (wish_.certificate) {
      chain = judgeIdentity(*wish_.certificate, wish_.keychain, profile_, &result_.obstacles,
                            &result_.remarks);
    }
    takeFrom({"link-leads-out", "unsafe-name", "item-unreadable", "info-unreadable"});
    judgeLinks();
    judgeKind();
    judgeProfile();
    judgeParts();
    judgeExecutable();
    if (chain && profile_) judgeResult(*chain);
    result_.wouldWrap = result_.obstacles.empty();
    return std::move(result_);
  }

 private:
  void refuse(std::string_view code, std::string place, std::string reason) {
    report(&result_.obstacles, code, std::move(place), std::move(reason));
  }
  void remark(std::string_view code, std::string place, std::string reason) {
    report(&result_.remarks, code, std::move(place), std::move(reason));
  }

  // The settings that a wrap would read, with the profiles that they name.
  void readRules() {
    ErrorText reason;
    if (!readSettings(&settings_, &reason)) {
      refuse("input-unreadable", "tovrek.conf", reason.text());
    }
    const std::string& folder = settings_.profilesFolder;
    std::vector<std::string> unreadable;
    if (!folder.empty() && !device::readProfiles(folder, &stored_, &unreadable, &reason)) {
      refuse("input-unreadable", folder, "the profiles cannot be read: " + reason.text());
    }
    for (const std::string& text : unreadable) remark("profile-unreadable", folder, text);
  }

  // What the judgement of the app itself has found already.
  void takeFrom(std::initializer_list<std::string_view> codes) {
    for (const Finding& finding : subject_.findings) {
      if (std::ranges::find(codes, finding.code) == codes.end()) continue;
      result_.obstacles.push_back(finding);
    }
  }

  // Of a folder that profile which covers the app, lists the certificate and ends last.
  void chooseProfile() {
    if (!wish_.profile) return;
    std::vector<std::string> files{*wish_.profile};
    const bool isFolder = isDirectory(*wish_.profile);
    if (isFolder) files = inputsIn(*wish_.profile, nullptr).value_or(std::vector<std::string>());
    for (const std::string& file : files) {
      const std::string extension = toLowerAscii(pathExtension(file));
      if (isFolder && extension != "mobileprovision" && extension != "provisionprofile") continue;
      std::string bytes;
      ErrorText reason;
      const bool isRead = signing::FileSource::disk().read(file, &bytes, kLargestDocument, &reason);
      auto profile = isRead ? readProfileDetails(bytes, file, &reason) : std::nullopt;
      if (!profile && !isFolder) refuse("profile-unreadable", file, reason.text());
      if (profile && (!profile_ || isBetter(*profile, *profile_))) profile_ = std::move(profile);
    }
    if (isFolder && !profile_) {
      refuse("profile-missing", *wish_.profile, "the folder holds no profile that can be read");
    }
    if (isFolder && profile_) remark("profile-chosen", profile_->path, "this profile fits best");
  }

  int fitness(const ProfileDetails& profile) const {
    const bool covers = profile.grants.covers(identifier_);
    const bool valid = profile.grants.isValidAt(rules_.now);
    const bool lists = !wish_.certificate || listsCertificate(profile, *wish_.certificate);
    return (covers ? 4 : 0) + (valid ? 2 : 0) + (lists ? 1 : 0);
  }
  bool isBetter(const ProfileDetails& a, const ProfileDetails& b) const {
    const int left = fitness(a), right = fitness(b);
    return left != right ? left > right : a.grants.expires > b.grants.expires;
  }

  std::optional<Contents> readExecutable() const {
    const Tree::Item* item = open_.tree->find(joinPath(open_.folder, app_.main().executable));
    return item != nullptr ? open_.tree->readAndKeep(*item) : std::nullopt;
  }

  void judgeKind() {
    const CodeObject& main = app_.main();
    if (!main.problem.empty()) refuse("code-unreadable", app_.folder, main.problem);
    bool isSdk = false, isWrapped = false, isPlain = false;
    for (const Slice& slice : main.slices) {
      isSdk |= linksSdk(slice);
      isPlain |= slice.cryptid == 0U;
      for (const std::string& words : slice.commands) {
        isWrapped |= contains(words, "OrvaneDylib.dylib");
      }
    }
    const auto contents = readExecutable();
    if (contents) isSdk |= holdsSdkNames(contents->text());
    if (isSdk) refuse("sdk-app", app_.folder, "the executable is linked with the app SDK");
    if (isWrapped) {
      refuse("wrapped-already", app_.folder, "the executable loads the management library");
    }
    const std::string air = joinPath(open_.folder, "META-INF/AIR/application.xml");
    if (open_.tree->find(air) != nullptr) {
      refuse("unsupported-app", app_.folder, "the app is made with Adobe AIR");
    }
    if (!isPlain && main.problem.empty()) {
      refuse("encrypted", app_.folder, "no slice states that it is not encrypted");
    }
  }

  // The toolkit takes fewer links than devices do.
  void judgeLinks() {
    LinkTargets links;
    for (const Tree::Item& item : open_.tree->items()) {
      if (item.kind != ItemKind::kLink) continue;
      if (const auto target = open_.tree->read(item, kLargestDocument)) {
        links[item.path] = target->text();
      }
    }
    for (const LinkFault& fault : faultsOf(links, open_.folder)) {
      refuse("link-refused", fault.path, fault.reason);
    }
  }

  void judgeProfile() {
    if (!profile_) return;
    const device::Profile& grants = profile_->grants;
    if (grants.expires != 0 && grants.expires < rules_.now) {
      refuse("profile-dates", profile_->path,
             fmt::format("the profile ended on {}", dateText(grants.expires)));
    }
    if (grants.entitlements.empty()) {
      refuse("profile-unreadable", profile_->path, "the profile holds no entitlements");
    }
    ErrorText reason;
    const WrapperLogger silent = silentLogger();
    if (!ProvisioningProfile::validateProfileWithPList(grants.entitlements, identifier_,
                                                       wish_.isUpgrade, silent, &reason)) {
      refuse("identifier-not-in-profile", profile_->path, reason.text());
    }
    for (const Slice& slice : app_.main().slices) {
      if (!slice.signature || !slice.signature->entitlements) continue;
      for (const auto& [key, value] : *slice.signature->entitlements) {
        if (key == "beta-reports-active" || grants.entitlements.contains(key)) continue;
        remark("entitlement-not-granted", profile_->path,
               fmt::format("the app has {}, the profile does not", key));
      }
      break;
    }
  }

  void judgeParts() {
    for (const CodeObject& object : app_.code) {
      if (object.kind != CodeKind::kExtension && object.kind != CodeKind::kWatchApp) continue;
      const bool isGone = isStripped(object.path, wish_);
      if (!isGone && !settings_.profilesFolder.empty()) continue;  // told with the result
      remark("extension-needs-profile", joinPath(app_.folder, object.path),
             isGone ? "a wrap strips it, unless -noStripExtensions is given"
                    : "it stays, with the profile and the entitlements that it has");
    }
  }

  void judgeExecutable() {
    const CodeObject& main = app_.main();
    const auto contents = readExecutable();
    if (main.problem.empty() && contents) {
      judgeInsertion(contents->text(), joinPath(app_.folder, main.executable), settings_,
                     &result_.obstacles, &result_.remarks);
    }
  }

  // By verifyResult this refuses the app or is only told.
  void judgeResult(const signing::CertificateChain& chain) {
    if (settings_.verifyResult == ResultCheck::kNone) return;
    const NewSignature signature{*profile_, chain, identifier_};
    for (const device::Finding& each :
         forecastResult(subject_, signature, wish_, settings_, rules_.now, stored_)) {
      const bool refuses = each.isRefused && settings_.verifyResult == ResultCheck::kStrict;
      Finding finding = makeFinding(each.code, each.place, kOnceSigned + each.reason);
      if (!refuses) finding.severity = each.isRefused ? Severity::kWarning : Severity::kNote;
      (refuses ? result_.obstacles : result_.remarks).push_back(std::move(finding));
    }
  }

  const WrapWish& wish_;
  const Rules& rules_;
  const OpenApp& open_;
  const App& app_;
  const Subject& subject_;
  const std::string identifier_;  // that the app is to have
  Settings settings_;
  std::vector<device::StoredProfile> stored_;
  std::optional<ProfileDetails> profile_;
  WrapForecast result_;
};

}  // namespace

WrapForecast forecastWrap(const WrapWish& wish, const Rules& rules, const OpenApp& open,
                          const Subject& subject) {
  return Forecast(wish, rules, open, subject).run();
}

}  // namespace tovrek::inspect
