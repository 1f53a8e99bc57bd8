#include "device/installation.h"

#include <fmt/format.h>

#include <map>

#include "device/code_judgement.h"
#include "device/nested_code.h"
#include "host/paths.h"

namespace tovrek::device {
namespace {

constexpr const char* kCompanionKey = "WKCompanionAppBundleIdentifier";
constexpr const char* kWatchAppKey = "WKAppBundleIdentifier";

std::string identifierIn(const PlistDictionary& info) {
  return stringForKeyOr(info, "CFBundleIdentifier", "");
}

class AppJudge {
 public:
  AppJudge(std::string appPath, double now, signing::DigestsToCheck digests,
           const signing::FileSource& files, Findings* findings)
      : app_(std::move(appPath)),
        now_(now),
        digests_(digests),
        files_(files),
        findings_(*findings) {}

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

  const std::string app_;
  const double now_;
  const signing::DigestsToCheck digests_;
  const signing::FileSource& files_;
  Findings& findings_;
  signing::KnownCertificates certificates_;         // of all code of the app
  std::string team_;                                // of the app
  std::map<std::string, std::string> identifiers_;  // of the apps seen so far, by path
};

void AppJudge::judgeMain() {
  const SignedCode code =
      judgeCode(app_, placeOf(app_), now_, digests_, &certificates_, &findings_, files_);
  team_ = code.team;
  identifiers_[app_] = identifierIn(code.info);
  judgeEmbeddedProfile(app_, code);
}

void AppJudge::judgeNested(const NestedCode& nested) {
  const SignedCode code = judgeCode(nested.path, placeOf(nested.path), now_, digests_,
                                    &certificates_, &findings_, files_);
  if (code.signer && code.team != team_) {
    refuse(kTeamMismatch, nested.path,
           fmt::format("it is signed by the team {}, the app by {}",
                       code.team.empty() ? "(none)" : code.team, team_.empty() ? "(none)" : team_));
  }
  if (!nested.takesProfile) return;
  identifiers_[nested.path] = identifierIn(code.info);
  judgeEmbeddedProfile(nested.path, code);
  const Family family{identifiers_[nested.enclosing], identifiers_[app_]};
  for (Finding& finding : judgeFamily(placeOf(nested.path), code.info, family)) {
    findings_.push_back(std::move(finding));
  }
}

void AppJudge::judgeEmbeddedProfile(const std::string& path, const SignedCode& code) {
  const std::string file = joinPath(path, kEmbeddedProfile);
  if (!files_.kindAt(file)) {
    return refuse(kProfileMissing, path, "it has no provisioning profile");
  }
  ErrorText reason;
  const auto profile = readProfile(file, &reason, files_);
  if (!profile) {
    return refuse(kProfileUnreadable, path, fmt::format("{}: {}", kEmbeddedProfile, reason.text()));
  }
  const BundleFacts facts{placeOf(path), identifierIn(code.info), code.signer, code.entitlements};
  for (Finding& finding : judgeProfile(*profile, facts, now_)) {
    findings_.push_back(std::move(finding));
  }
}

}  // namespace

Findings judgeFamily(const std::string& place, const PlistDictionary& info, const Family& family) {
  Findings findings;
  const auto refuse = [&](std::string_view code, std::string reason) {
    findings.push_back({code, place, std::move(reason)});
  };
  const std::string own = identifierIn(info);
  if (!own.empty() && !own.starts_with(family.enclosing + ".")) {
    refuse(kIdentifierNotBelowApp,
           fmt::format("the identifier {} does not begin with {}", own, family.enclosing + "."));
  }
  const auto compare = [&](const PlistDictionary* from, const char* key,
                           const std::string& wanted) {
    const std::string* named = from == nullptr ? nullptr : stringForKey(*from, key);
    if (named == nullptr || *named == wanted) return;
    refuse(kCompanionMismatch, fmt::format("{} is {}, not {}", key, *named, wanted));
  };
  compare(&info, kCompanionKey, family.app);
  const PlistDictionary* extension = dictionaryForKey(info, "NSExtension");
  compare(extension != nullptr ? dictionaryForKey(*extension, "NSExtensionAttributes") : nullptr,
          kWatchAppKey, family.enclosing);
  return findings;
}

bool judgeApp(const std::string& appPath, double now, Findings* findings, ErrorText* error,
              signing::DigestsToCheck digests, const signing::FileSource& files) {
  std::vector<NestedCode> nested;
  if (!findNestedCode(appPath, files, &nested, error)) return false;
  AppJudge judge(appPath, now, digests, files, findings);
  judge.judgeMain();
  for (const NestedCode& code : nested) judge.judgeNested(code);
  return true;
}

}  // namespace tovrek::device
