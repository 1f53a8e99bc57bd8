#include "device/installation.h"

#include <fmt/format.h>

#include <map>

#include "device/code_judgement.h"
#include "device/nested_code.h"
#include "host/files.h"
#include "host/paths.h"

namespace tovrek::device {
namespace {

std::string identifierIn(const PlistDictionary& info) {
  return stringForKeyOr(info, "CFBundleIdentifier", "");
}

class AppJudge {
 public:
  AppJudge(std::string appPath, double now, signing::DigestsToCheck digests, Findings* findings)
      : app_(std::move(appPath)), now_(now), digests_(digests), findings_(*findings) {}

  void judgeMain();
  void judgeNested(const NestedCode& code);

 private:
  // The path from the folder that the app lies in.
  std::string placeOf(const std::string& path) const {
    return lastPathComponent(app_) + path.substr(app_.size());
  }
  void refuse(std::string_view code, const std::string& path, std::string reason) {
    findings_.push_back({code, placeOf(path), std::move(reason)});
  }
  void judgeEmbeddedProfile(const std::string& path, const SignedCode& code);
  void judgeFamily(const NestedCode& code, const PlistDictionary& info);
  void judgeCompanion(const std::string& path, const std::string& key, const std::string* named,
                      const std::string& wanted);

  const std::string app_;
  const double now_;
  const signing::DigestsToCheck digests_;
  Findings& findings_;
  signing::KnownCertificates certificates_;         // of all code of the app
  std::string team_;                                // of the app
  std::map<std::string, std::string> identifiers_;  // of the apps seen so far, by path
};

void AppJudge::judgeMain() {
  const SignedCode code =
      judgeCode(app_, placeOf(app_), now_, digests_, &certificates_, &findings_);
  team_ = code.team;
  identifiers_[app_] = identifierIn(code.info);
  judgeEmbeddedProfile(app_, code);
}

void AppJudge::judgeNested(const NestedCode& nested) {
  const SignedCode code =
      judgeCode(nested.path, placeOf(nested.path), now_, digests_, &certificates_, &findings_);
  if (code.signer && code.team != team_) {
    refuse(kTeamMismatch, nested.path,
           fmt::format("it is signed by the team {}, the app by {}",
                       code.team.empty() ? "(none)" : code.team, team_.empty() ? "(none)" : team_));
  }
  if (!nested.takesProfile) return;
  identifiers_[nested.path] = identifierIn(code.info);
  judgeEmbeddedProfile(nested.path, code);
  judgeFamily(nested, code.info);
}

void AppJudge::judgeEmbeddedProfile(const std::string& path, const SignedCode& code) {
  const std::string file = joinPath(path, kEmbeddedProfile);
  if (!itemExistsNoFollow(file)) {
    return refuse(kProfileMissing, path, "it has no provisioning profile");
  }
  ErrorText reason;
  const auto profile = readProfile(file, &reason);
  if (!profile) {
    return refuse(kProfileUnreadable, path, fmt::format("{}: {}", kEmbeddedProfile, reason.text()));
  }
  const BundleFacts facts{placeOf(path), identifierIn(code.info), code.signer, code.entitlements};
  for (Finding& finding : judgeProfile(*profile, facts, now_)) {
    findings_.push_back(std::move(finding));
  }
}

// What must agree between an app and the bundles that belong to it.
void AppJudge::judgeFamily(const NestedCode& nested, const PlistDictionary& info) {
  const std::string& outer = identifiers_[nested.enclosing];
  const std::string own = identifierIn(info);
  if (!own.empty() && !own.starts_with(outer + ".")) {
    refuse(kIdentifierNotBelowApp, nested.path,
           fmt::format("the identifier {} does not begin with {}", own, outer + "."));
  }
  constexpr const char* kCompanion = "WKCompanionAppBundleIdentifier";
  judgeCompanion(nested.path, kCompanion, stringForKey(info, kCompanion), identifiers_[app_]);
  const PlistDictionary* extension = dictionaryForKey(info, "NSExtension");
  const PlistDictionary* attributes =
      extension != nullptr ? dictionaryForKey(*extension, "NSExtensionAttributes") : nullptr;
  constexpr const char* kWatchApp = "WKAppBundleIdentifier";
  if (attributes != nullptr) {
    judgeCompanion(nested.path, kWatchApp, stringForKey(*attributes, kWatchApp), outer);
  }
}

void AppJudge::judgeCompanion(const std::string& path, const std::string& key,
                              const std::string* named, const std::string& wanted) {
  if (named == nullptr || *named == wanted) return;
  refuse(kCompanionMismatch, path, fmt::format("{} is {}, not {}", key, *named, wanted));
}

}  // namespace

bool judgeApp(const std::string& appPath, double now, Findings* findings, ErrorText* error,
              signing::DigestsToCheck digests) {
  std::vector<NestedCode> nested;
  if (!findNestedCode(appPath, &nested, error)) return false;
  AppJudge judge(appPath, now, digests, findings);
  judge.judgeMain();
  for (const NestedCode& code : nested) judge.judgeNested(code);
  return true;
}

}  // namespace tovrek::device
