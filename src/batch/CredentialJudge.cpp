#include <fmt/format.h>

#include <algorithm>

#include "batch/app_facts.h"
#include "batch/judging.h"
#include "host/file_status.h"
#include "host/files.h"
#include "inspect/forecast.h"
#include "inspect/identity_forecast.h"
#include "inspect/insertion_forecast.h"
#include "inspect/inspect.h"
#include "inspect/readers.h"
#include "inspect/text.h"
#include "profile/ProvisioningProfile.h"

namespace tovrek::batch {
namespace {

std::string joinedReasons(const inspect::Findings& findings) {
  std::string reasons;
  for (const inspect::Finding& each : findings) {
    reasons += (reasons.empty() ? "" : "; ") + each.reason;
  }
  return reasons;
}

// A pipe would be waited for.
bool isRegularFile(const std::string& path) {
  const auto status = statusOf(path);
  return status && status->kind == ItemKind::kFile;
}

// The keychain that the command is told of; it looks there only when -pell is given too.
std::optional<std::string> keychainOf(const Job& job) {
  const std::string* path = job.value("keychainPath");
  return path != nullptr && job.value("pell") != nullptr ? std::optional(*path) : std::nullopt;
}

// What a forecast finds against certificate and profile is told under their columns already.
constexpr std::string_view kJudgedBefore[] = {"certificate-not-in-profile", "identity",
                                              "profile-dates", "profile-unreadable",
                                              "identifier-not-in-profile"};

std::optional<std::string> valueOf(const Job& job, std::string_view column) {
  const std::string* value = job.value(column);
  return value != nullptr ? std::optional(*value) : std::nullopt;
}

inspect::WrapWish wishOf(const Job& job, const JudgingRules& rules) {
  inspect::WrapWish wish;
  if (rules.keysAreHere) wish.certificate = valueOf(job, "Cert");
  wish.profile = valueOf(job, "Profile");
  wish.keychain = keychainOf(job);
  wish.bundleId = valueOf(job, "bundleID");
  wish.isUpgrade = job.value("upgrade") != nullptr;
  wish.keepsExtensions = job.value("noStripExtensions") != nullptr;
  return wish;
}

}  // namespace

const CredentialJudge::ProfileAnswer& CredentialJudge::profileAt(const std::string& path) {
  const auto [known, isNew] = profiles_.try_emplace(path);
  if (!isNew) return known->second;
  std::string bytes;
  ErrorText reason;
  if (fileSize(path).value_or(0) > inspect::kLargestDocument) {
    reason.set("it is too large");
  } else if (readFile(path, &bytes, &reason)) {
    known->second.profile = inspect::readProfileDetails(bytes, path, &reason);
  }
  known->second.problem = reason.text();
  return known->second;
}

const std::string& CredentialJudge::certificateProblem(const Job& job,
                                                       const std::string& profilePath,
                                                       const inspect::ProfileDetails& profile) {
  const std::string& certificate = *job.value("Cert");
  const auto keychain = keychainOf(job);
  const auto [known, isNew] =
      certificates_.try_emplace({certificate, profilePath, keychain.value_or("")});
  if (!isNew) return known->second;
  if (rules_.keysAreHere) {
    inspect::Findings obstacles, remarks;
    inspect::judgeIdentity(certificate, keychain, profile, &obstacles, &remarks);
    // What a wrap only remarks on here is an app that no device takes.
    obstacles.insert(obstacles.end(), remarks.begin(), remarks.end());
    known->second = joinedReasons(obstacles);
  } else if (!inspect::listsCertificate(profile, certificate)) {
    known->second = fmt::format("the profile does not list {}", certificate);
  }
  return known->second;
}

void CredentialJudge::judgeProfile(const Job& job, const inspect::ProfileDetails& profile,
                                   Faults* faults) {
  const device::Profile& grants = profile.grants;
  if (grants.expires != 0 && grants.expires < rules_.now) {
    refuse(job, "Profile", fmt::format("it ended on {}", inspect::dateText(grants.expires)),
           faults);
  }
  if (grants.entitlements.empty()) refuse(job, "Profile", "it holds no entitlements", faults);
  const std::string* wanted = job.value("bundleID");
  ErrorText reason;
  const auto identifier = wanted != nullptr ? *wanted : appIdentifier(job.input(), &reason);
  if (!identifier) return refuse(job, "in", job.input() + ": " + reason.text(), faults);
  if (grants.entitlements.empty()) return;
  const WrapperLogger silent = inspect::silentLogger();
  if (!ProvisioningProfile::validateProfileWithPList(
          grants.entitlements, *identifier, job.value("upgrade") != nullptr, silent, &reason)) {
    refuse(job, "Profile",
           fmt::format("it is for {}, not for {}", grants.applicationIdentifier, *identifier),
           faults);
  }
}

void CredentialJudge::judge(const Job& job, Faults* faults) {
  const std::string* path = job.value("Profile");
  // Those that were told of already.
  if (path == nullptr || !isRegularFile(*path) || !isRegularFile(job.input())) return;
  const ProfileAnswer& answer = profileAt(*path);
  if (!answer.profile) {
    return refuse(job, "Profile", "it is no profile: " + answer.problem, faults);
  }
  judgeProfile(job, *answer.profile, faults);
  const std::string& problem = certificateProblem(job, *path, *answer.profile);
  if (!problem.empty()) refuse(job, "Cert", problem, faults);
}

void judgeThoroughly(const Job& job, const JudgingRules& rules, Faults* faults) {
  if (!isRegularFile(job.input())) return;
  inspect::OpenApp open;
  const inspect::Rules inspection{.now = rules.now};
  const inspect::Subject subject = inspect::inspectInput(job.input(), inspection, &open);
  if (!subject.app) {
    const std::string reason = joinedReasons(subject.findings);
    return refuse(job, "in", reason.empty() ? "it holds no app" : reason, faults);
  }
  if (job.command != CommandKind::kWrap) return;
  const auto forecast = inspect::forecastWrap(wishOf(job, rules), inspection, open, subject);
  for (const inspect::Finding& each : forecast.obstacles) {
    if (std::ranges::find(kJudgedBefore, each.code) != std::end(kJudgedBefore) &&
        !each.reason.starts_with(inspect::kOnceSigned)) {
      continue;
    }
    refuse(job, "in",
           fmt::format("{}{}{}", each.place, each.place.empty() ? "" : ": ", each.reason), faults);
  }
}

}  // namespace tovrek::batch
