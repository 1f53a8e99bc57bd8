// What a device would say to an app: the installer's own judgement, and what it does not tell.
#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "device/code_judgement.h"
#include "device/installation.h"
#include "host/paths.h"
#include "inspect/TreeSource.h"
#include "inspect/judges.h"
#include "inspect/readers.h"
#include "inspect/text.h"
#include "macho/layout.h"

namespace tovrek::inspect {
namespace {

constexpr uint32_t kAnyExecute = 0111;
constexpr double kDay = 86400;
// Findings about files that cannot be unpacked; the rest is counted.
constexpr size_t kMostUnreadable = 100;

// Where a path inside the app is told of: from the folder that the app lies in.
std::string placeIn(const App& app, const std::string& path) {
  return joinPath(app.folder, path);
}

// Whether the link's target, taken as text from where the link stands, leaves the folder.
bool leadsOutOf(const std::string& linkPath, std::string_view target) {
  if (target.empty() || target.front() == '/') return true;
  int64_t depth = std::count(linkPath.begin(), linkPath.end(), '/');
  while (!target.empty()) {
    const size_t end = std::min(target.find('/'), target.size());
    const std::string_view part = target.substr(0, end);
    target.remove_prefix(std::min(end + 1, target.size()));
    if (part.empty() || part == ".") continue;
    depth += part == ".." ? -1 : 1;
    if (depth < 0) return true;
  }
  return false;
}

void judgeNames(const Tree& tree, const std::string& folder, Subject* subject) {
  for (const std::string& name : tree.strayNames()) {
    report(&subject->findings, "unsafe-name", name,
           "the entry lies outside of the archive's folder, stands there twice, or lies behind "
           "what is no folder");
  }
  for (const Tree::Item& item : tree.below(folder)) {
    if (item.kind != ItemKind::kLink) continue;
    const std::string path = folder.empty() ? item.path : item.path.substr(folder.size() + 1);
    const auto target = tree.read(item, kLargestDocument);
    if (target && !leadsOutOf(path, target->text())) continue;
    report(
        &subject->findings, "link-leads-out", placeIn(*subject->app, path),
        target ? fmt::format("the link leads to {}", target->text()) : "the link cannot be read");
  }
}

class CodeFacts {
 public:
  CodeFacts(const App& app, Findings* findings) : app_(app), findings_(*findings) {}

  void judge(const CodeObject& object) {
    place_ = placeIn(app_, object.path);
    const bool needsCode = object.kind != CodeKind::kBundle && object.kind != CodeKind::kFramework;
    if (!object.problem.empty() && (needsCode || !object.executable.empty())) {
      add("code-unreadable", fmt::format("the executable cannot be read: {}", object.problem));
    }
    const bool isProgram = object.kind == CodeKind::kApp || object.kind == CodeKind::kExtension ||
                           object.kind == CodeKind::kWatchApp;
    if (isProgram && object.permissions != 0 && (object.permissions & kAnyExecute) == 0) {
      add("executable-bit-lost", fmt::format("{} has the permissions {:03o}", object.executable,
                                             object.permissions & 0777));
    }
    for (const Slice& slice : object.slices) judgeSlice(object, slice);
  }

 private:
  void add(std::string_view code, std::string reason) {
    report(&findings_, code, place_, std::move(reason));
  }

  void judgeSlice(const CodeObject& object, const Slice& slice) {
    const std::string& arch = slice.architecture;
    if (!slice.problem.empty()) {
      add("slice-damaged", fmt::format("{}: {}", arch, slice.problem));
    }
    if (slice.isEncrypted()) {
      add("encrypted", fmt::format("the {} slice is encrypted", arch));
    }
    const bool isMain = object.kind == CodeKind::kApp;
    if (isMain && app_.isWrapped && !slice.loadsManagement) {
      add("architecture-not-wrapped",
          fmt::format("the {} slice does not load the management library", arch));
    }
    const bool isOptional = object.kind == CodeKind::kExtension;  // newer systems alone offer it
    if (!isOptional && !slice.minimumSystem.empty() && !app_.minimumSystem.empty() &&
        slice.platform == "iOS" && isHigherVersion(slice.minimumSystem, app_.minimumSystem)) {
      add("system-above-app", fmt::format("the {} slice needs {}, the app says {}", arch,
                                          slice.minimumSystem, app_.minimumSystem));
    }
    if (slice.signature) judgeSignature(slice, *slice.signature);
  }

  void judgeSignature(const Slice& slice, const SliceSignature& signature) {
    if (signature.isAdhoc) return;
    const std::string& arch = slice.architecture;
    const auto uses = [&](std::string_view kind) {
      return std::ranges::find(signature.hashes, kind) != signature.hashes.end();
    };
    if (!uses("sha256")) {
      add("hash-too-old", fmt::format("the {} slice is signed with SHA-1 alone", arch));
    }
    const std::string& lowest =
        slice.minimumSystem.empty() ? app_.minimumSystem : slice.minimumSystem;
    const bool isOld = !lowest.empty() && isHigherVersion("11.0", lowest);
    if (!uses("sha1") && isOld && slice.platform != "watchOS") {
      add("hash-too-new",
          fmt::format("the {} slice is to run on {}, which knows SHA-1 alone", arch, lowest));
    }
    if (signature.entitlements && !signature.hasDerEntitlements) {
      add("der-entitlements-missing",
          fmt::format("the {} slice has no entitlements in DER form", arch));
    }
  }

  const App& app_;
  Findings& findings_;
  std::string place_;
};

// Every certificate once, at the first place that it signed.
void judgeSigners(const App& app, const Rules& rules, Findings* findings) {
  std::set<std::string> seen;
  for (const CodeObject& object : app.code) {
    for (const Slice& slice : object.slices) {
      if (!slice.signature) continue;
      for (const Certificate& certificate : slice.signature->chain) {
        if (!seen.insert(certificate.sha1()).second) continue;
        judgeExpiry(certificate, placeIn(app, object.path), rules, findings);
      }
    }
    if (object.profile) judgeExpiry(*object.profile, rules, findings);
  }
}

// Reasons name files by where the app lies on this machine.
std::string withoutFolder(std::string reason, const std::string& folder) {
  if (folder.empty()) return reason;
  const std::string prefix = folder + "/";
  for (size_t at = reason.find(prefix); at != std::string::npos; at = reason.find(prefix, at)) {
    reason.erase(at, prefix.size());
  }
  return reason;
}

void addInstallerFindings(const device::Findings& found, const std::string& folder,
                          Findings* findings) {
  for (const device::Finding& each : found) {
    Finding finding = makeFinding(each.code, each.place, withoutFolder(each.reason, folder));
    finding.severity = each.isRefused ? Severity::kError : Severity::kNote;
    findings->push_back(std::move(finding));
  }
}

void judgeInstallation(const signing::FileSource& files, const std::string& appPath,
                       const Rules& rules, Subject* subject) {
  device::Findings found;
  ErrorText reason;
  if (!device::judgeApp(appPath, rules.now, &found, &reason, signing::DigestsToCheck::kAll,
                        files)) {
    report(&subject->findings, "item-unreadable", subject->app->folder,
           "the signatures cannot be judged: " + reason.text());
  }
  addInstallerFindings(found, deletingLastPathComponent(appPath), &subject->findings);
}

// What no seal lists was not read by the judge.
void judgeRest(const Tree& tree, Findings* findings) {
  size_t untold = 0, told = 0;
  tree.readTheRest([&](const Tree::Item& item, const std::string& reason) {
    if (told == kMostUnreadable) {
      ++untold;
      return;
    }
    ++told;
    report(findings, "item-unreadable", item.path, "it cannot be unpacked: " + reason);
  });
  if (untold != 0) {
    report(findings, "item-unreadable", "", fmt::format("{} more cannot be unpacked", untold));
  }
}

}  // namespace

void judgeExpiry(const ProfileDetails& profile, const Rules& rules, Findings* findings) {
  const double left = profile.grants.expires - rules.now;
  if (profile.grants.expires == 0 || left < 0 || left > rules.soonDays * kDay) return;
  report(findings, "profile-expires-soon", profile.path,
         fmt::format("the profile \"{}\" ends on {}", profile.grants.name,
                     dateText(profile.grants.expires)));
}

void judgeExpiry(const Certificate& certificate, const std::string& place, const Rules& rules,
                 Findings* findings) {
  const double left = certificate.notAfter() - rules.now;
  if (left < 0 || left > rules.soonDays * kDay) return;
  report(findings, "certificate-expires-soon", place,
         fmt::format("the certificate \"{}\" ends on {}", certificate.signerName(),
                     dateText(certificate.notAfter())));
}

void judgeApp(const Tree& tree, const std::string& folder, const std::string& pathOnDisk,
              const Rules& rules, Subject* subject) {
  const App& app = *subject->app;
  judgeNames(tree, folder, subject);
  CodeFacts facts(app, &subject->findings);
  for (const CodeObject& object : app.code) facts.judge(object);
  judgeSigners(app, rules, &subject->findings);
  if (!pathOnDisk.empty()) {
    return judgeInstallation(signing::FileSource::disk(), pathOnDisk, rules, subject);
  }
  const TreeSource packed(tree, deletingLastPathComponent(folder));
  judgeInstallation(packed, lastPathComponent(folder), rules, subject);
  judgeRest(tree, &subject->findings);
}

void judgeCodeFile(const std::string& path, const Rules& rules, Subject* subject) {
  device::Findings found;
  const std::string place = lastPathComponent(path);
  device::judgeCode(path, place, rules.now, signing::DigestsToCheck::kAll, nullptr, &found);
  addInstallerFindings(found, deletingLastPathComponent(path), &subject->findings);
  for (const CodeObject& object : subject->code) {
    for (const Slice& slice : object.slices) {
      if (!slice.problem.empty()) {
        report(&subject->findings, "slice-damaged", place,
               fmt::format("{}: {}", slice.architecture, slice.problem));
      }
      if (slice.isEncrypted()) {
        report(&subject->findings, "encrypted", place,
               fmt::format("the {} slice is encrypted", slice.architecture));
      }
    }
    if (!object.problem.empty()) {
      report(&subject->findings, "code-unreadable", place, object.problem);
    }
  }
}

void judgeCredentials(const Rules& rules, Subject* subject) {
  for (const ProfileDetails& profile : subject->profiles) {
    if (!profile.grants.isValidAt(rules.now)) {
      report(&subject->findings, "profile-dates", profile.path,
             fmt::format("the profile is valid from {} to {}", dateText(profile.grants.created),
                         dateText(profile.grants.expires)));
    }
    judgeExpiry(profile, rules, &subject->findings);
    for (const Certificate& each : profile.grants.certificates) {
      judgeExpiry(each, profile.path, rules, &subject->findings);
    }
  }
  for (const Certificate& each : subject->certificates) {
    if (each.notBefore() > rules.now || each.notAfter() < rules.now) {
      report(&subject->findings, "certificate-dates", lastPathComponent(subject->path),
             fmt::format("the certificate \"{}\" is valid from {} to {}", each.signerName(),
                         dateText(each.notBefore()), dateText(each.notAfter())));
    }
    judgeExpiry(each, lastPathComponent(subject->path), rules, &subject->findings);
  }
}

}  // namespace tovrek::inspect
