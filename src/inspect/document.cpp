#include "inspect/document.h"

#include <fmt/format.h>

#include <algorithm>

#include "formats/hex.h"
#include "host/clock.h"
#include "host/paths.h"
#include "inspect/text.h"
#include "signing/signing_rules.h"

namespace tovrek::inspect {
namespace {

constexpr size_t kMostDevicesShown = 20;

std::string joined(const std::vector<std::string>& texts) {
  return fmt::format("{}", fmt::join(texts, ", "));
}

std::string yesNo(bool value) {
  return value ? "yes" : "no";
}

std::string certificateLine(const Certificate& certificate) {
  const auto team = certificate.organizationalUnit();
  return fmt::format("{}{}, until {}, SHA-1 {}", certificate.signerName(),
                     team ? fmt::format(" (team {})", *team) : "", dateText(certificate.notAfter()),
                     certificate.sha1Hex());
}

std::vector<std::string> entitlementLines(const PlistDictionary& entitlements) {
  std::vector<std::string> lines;
  for (const auto& [key, value] : entitlements) {
    lines.push_back(fmt::format("{} = {}", key, valueText(value)));
  }
  return lines;
}

Section describeApp(const Subject& subject) {
  const App& app = *subject.app;
  Section section{.title = "App"};
  section.add("Name", app.name);
  section.add("Identifier", app.identifier);
  const bool hasBuild = !app.build.empty() && app.build != app.version;
  section.add("Version",
              hasBuild ? fmt::format("{} (build {})", app.version, app.build) : app.version);
  section.add("Lowest system", app.minimumSystem);
  section.add("Devices", joined(app.devices));
  section.add("Architectures", joined(app.architectures));
  section.add("Size", fmt::format("{} in {} files", sizeText(app.size), app.files));
  section.add("Encrypted", yesNo(app.isEncrypted));
  std::string wrapped = yesNo(app.isWrapped);
  if (app.isWrapped && !app.libraryVersion.empty()) wrapped += ", by " + app.libraryVersion;
  if (app.isWrapped && subject.package && !subject.package->packagedAt.empty()) {
    wrapped += fmt::format(", packaged by {} on {}", subject.package->packagedBy,
                           subject.package->packagedAt);
  }
  section.add("Wrapped", wrapped);
  if (app.isSdk) section.add("App SDK", "yes");
  if (app.isIntune) section.add("Intune", "yes");
  return section;
}

Section describeSlice(const Slice& slice) {
  Section section{.title = slice.architecture};
  section.add("System", slice.platform.empty()
                            ? ""
                            : fmt::format("{} {} or later, built with {}", slice.platform,
                                          slice.minimumSystem, slice.sdk));
  section.add("Damage", slice.problem);
  if (slice.isEncrypted()) section.add("Encrypted", "yes");
  section.add("Header room", fmt::format("{} bytes", slice.headerRoom));
  section.add("Libraries", slice.libraries);
  if (!slice.signature) {
    section.add("Signature", slice.signatureProblem);
    return section;
  }
  const SliceSignature& signature = *slice.signature;
  section.add("Signed as", signature.identifier);
  section.add("Team", signature.team);
  if (signature.isAdhoc) section.add("Authority", "none, signed ad hoc");
  std::vector<std::string> chain;
  for (const Certificate& each : signature.chain) chain.push_back(certificateLine(each));
  section.add("Authority", std::move(chain));
  if (signature.signedAt) section.add("Signed on", dateText(*signature.signedAt));
  section.add("Hashes", joined(signature.hashes));
  section.add("Flags", signing::flagsText(signature.flags));
  section.add("Code hash", signature.cdHash);
  if (signature.entitlements) {
    section.add("Entitlements", entitlementLines(*signature.entitlements));
  }
  return section;
}

Section describeProfile(const ProfileDetails& profile, std::string title) {
  const device::Profile& grants = profile.grants;
  Section section{.title = std::move(title)};
  section.add("Name", grants.name);
  section.add("Team", profile.teamName.empty()
                          ? grants.team
                          : fmt::format("{} ({})", profile.teamName, grants.team));
  section.add("Kind", profile.kind);
  section.add("Identifier", grants.applicationIdentifier);
  section.add("Valid", fmt::format("{} to {}", dateText(grants.created), dateText(grants.expires)));
  section.add("Platforms", joined(grants.platforms));
  if (grants.allDevices) {
    section.add("Devices", "all devices of the organisation");
  } else if (grants.devices) {
    std::vector<std::string> devices = *grants.devices;
    const size_t count = devices.size();
    if (count > kMostDevicesShown) {
      devices.resize(kMostDevicesShown);
      devices.push_back(fmt::format("and {} more", count - kMostDevicesShown));
    }
    section.add("Devices", std::move(devices));
  }
  std::vector<std::string> certificates;
  for (const Certificate& each : grants.certificates) certificates.push_back(certificateLine(each));
  section.add("Certificates", std::move(certificates));
  section.add("Grants", entitlementLines(grants.entitlements));
  return section;
}

Section describeCode(const CodeObject& object) {
  Section section{.title = fmt::format("{} {}", nameOf(object.kind),
                                       object.path.empty() ? object.executable : object.path)};
  section.add("Identifier", object.identifier);
  section.add("Version", object.version);
  section.add("Problem", object.problem);
  for (const Slice& slice : object.slices) section.parts.push_back(describeSlice(slice));
  if (object.profile) section.parts.push_back(describeProfile(*object.profile, "Profile"));
  return section;
}

std::string iconLine(const Icon& icon) {
  if (icon.width == 0) return icon.path + " (no PNG file)";
  return fmt::format("{} ({}x{})", icon.path, icon.width, icon.height);
}

Section describePackage(const Package& package) {
  Section section{.title = "Package"};
  std::vector<std::string> files, manifest, icons;
  for (const auto& [name, size] : package.files) {
    files.push_back(fmt::format("{} ({})", name, sizeText(size)));
  }
  for (const auto& [path, text] : package.manifest) {
    manifest.push_back(fmt::format("{} = {}", path.substr(path.find('/') + 1), text));
  }
  for (const Icon& icon : package.icons) icons.push_back(iconLine(icon));
  section.add("Files", std::move(files));
  section.add("Manifest", std::move(manifest));
  section.add("Policies", package.policies);
  section.add("Languages", package.languages);
  section.add("Icons", std::move(icons));
  return section;
}

Section describeExpiries(const Subject& subject) {
  Section section{.title = "Ends"};
  for (const auto& expiry : subject.expiries()) section.add(dateText(expiry.at), expiry.what);
  return section;
}

std::string changeLine(const Change& change) {
  if (change.before.empty() && change.after.empty()) return change.subject;
  if (change.before.empty()) return fmt::format("+ {}: {}", change.subject, change.after);
  if (change.after.empty()) return fmt::format("- {}: {}", change.subject, change.before);
  return fmt::format("~ {}: {} -> {}", change.subject, change.before, change.after);
}

Section describeComparison(const Comparison& comparison) {
  Section section{.title = "Against the original"};
  for (const ChangeGroup& group : comparison) {
    std::vector<std::string> lines;
    for (const Change& change : group.changes) lines.push_back(changeLine(change));
    lines.push_back(fmt::format("{} unchanged", group.unchanged));
    section.add(group.title, std::move(lines));
  }
  return section;
}

Section describeForecast(const WrapForecast& forecast) {
  Section section{.title = "Before a wrap"};
  section.add("Verdict", forecast.wouldWrap ? "would be wrapped" : "would be refused");
  for (const auto* list : {&forecast.obstacles, &forecast.remarks}) {
    for (const Finding& finding : *list) {
      section.add(finding.code, fmt::format("{}{}{}", finding.place,
                                            finding.place.empty() ? "" : ": ", finding.reason));
    }
  }
  return section;
}

}  // namespace

void Section::add(std::string name, std::string value) {
  if (!value.empty()) fields.push_back({std::move(name), {std::move(value)}});
}

void Section::add(std::string name, std::vector<std::string> values) {
  if (!values.empty()) fields.push_back({std::move(name), std::move(values)});
}

std::vector<Section> describe(const Subject& subject) {
  std::vector<Section> sections;
  const auto add = [&](Section section) {
    if (!section.isEmpty()) sections.push_back(std::move(section));
  };
  if (subject.app) add(describeApp(subject));
  if (subject.forecast) add(describeForecast(*subject.forecast));
  if (subject.comparison) add(describeComparison(*subject.comparison));
  for (const ProfileDetails& profile : subject.profiles) {
    add(describeProfile(profile, "Profile"));
  }
  if (!subject.certificates.empty()) {
    Section section{.title = subject.hasKeys ? "Identity" : "Certificates"};
    for (const Certificate& each : subject.certificates) {
      section.add("Certificate", certificateLine(each));
    }
    add(std::move(section));
  }
  add(describeExpiries(subject));
  Section code{.title = "Code"};
  if (subject.app) {
    for (const CodeObject& object : subject.app->code) code.parts.push_back(describeCode(object));
  }
  for (const CodeObject& object : subject.code) code.parts.push_back(describeCode(object));
  add(std::move(code));
  if (subject.package) add(describePackage(*subject.package));
  return sections;
}

std::string verdictText(const Findings& findings) {
  const FindingCounts counts = countOf(findings);
  std::vector<std::string> parts;
  const auto add = [&](size_t count, std::string_view what) {
    if (count != 0) parts.push_back(fmt::format("{} {}{}", count, what, count == 1 ? "" : "s"));
  };
  add(counts.errors, "error");
  add(counts.warnings, "warning");
  add(counts.notes, "note");
  return parts.empty() ? "nothing found against it" : joined(parts);
}

}  // namespace tovrek::inspect
