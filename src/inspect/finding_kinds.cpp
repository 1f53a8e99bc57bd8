// The table of everything that Inspect can find.
#include <algorithm>
#include <cassert>
#include <tuple>

#include "inspect/Finding.h"

namespace tovrek::inspect {

const std::vector<FindingKind>& findingKinds() {
  using enum Severity;
  constexpr const char* kSignAgain = "Sign the app again, after the last change to its files.";
  constexpr const char* kGetProfile =
      "Get a profile from the developer portal that fits, and wrap or sign again with it.";
  constexpr const char* kAskMaker = "Ask the maker of the app for a build without this.";
  static const std::vector<FindingKind> kKinds = {
      {"app-missing", kError, "The archive holds no app.",
       "Pack the folder Payload with the app in it at the top of the archive."},
      {"architecture-not-wrapped", kError,
       "A slice of a wrapped app does not load the management library.",
       "Wrap the original app again; do not join slices of different builds."},
      {"certificate-dates", kError, "A certificate has expired or is not valid yet.",
       "Renew the certificate and sign again."},
      {"certificate-expires-soon", kWarning, "A certificate ends within the days asked for.",
       "Renew the certificate and sign again before that day."},
      {"certificate-not-in-profile", kError, "The profile does not list the signer's certificate.",
       "Sign with a certificate that the profile lists, or add the certificate to the profile."},
      {"certificate-purpose", kError, "The certificate is not meant for code signing.",
       "Sign with a development or distribution certificate."},
      {"chain-incomplete", kError, "The signature lacks an issuer's certificate.",
       "Import the authority's intermediate certificate into the keychain and sign again."},
      {"chain-not-trusted", kError, "Devices do not know the authority of the signer.",
       "Sign with a certificate that was issued by the platform's authority."},
      {"code-unreadable", kError, "An executable is missing or damaged.", kAskMaker},
      {"companion-mismatch", kError, "A watch app or extension names another app as its own.",
       "Set the identifiers of the parts to those of the app and sign again."},
      {"der-entitlements-missing", kError,
       "The signature has its entitlements as a property list only, which systems from 15 on do "
       "not accept.",
       "Sign again with a current program."},
      {"encrypted", kError, "The code is encrypted by the store.",
       "Ask the maker for a build that was not downloaded from the store."},
      {"entitlement-not-granted", kError, "The profile does not grant an entitlement.",
       kGetProfile},
      {"entitlements-missing", kError, "The signature has no entitlements.", kSignAgain},
      {"executable-bit-lost", kWarning, "An executable is not marked as such.",
       "Pack the app with a program that keeps permissions."},
      {"extension-needs-profile", kWarning, "A wrap does not give extensions profiles.",
       "Strip the extensions, or give each of them a profile of its own."},
      {"hash-too-new", kError,
       "The lowest system that the app names does not know the signature's hashes.",
       "Sign again with both kinds of hashes, or raise the lowest system to 11.0."},
      {"hash-too-old", kWarning, "The signature has no SHA-256 hashes.", kSignAgain},
      {"header-room", kError, "There is no room to insert the load commands.",
       "Ask the maker to link the app with -headerpad 0x1000."},
      {"identifier-mismatch", kError, "The signature is for another identifier than the app's.",
       kSignAgain},
      {"identifier-missing", kError, "A bundle has no identifier.", kAskMaker},
      {"identifier-not-below-app", kError,
       "The identifier of a part does not begin with that of the app.",
       "Change the identifiers of the extensions and watch apps along with the app's."},
      {"identifier-not-in-profile", kError, "The profile is for another identifier.", kGetProfile},
      {"identity", kError, "The keychain has no identity for this name that can sign.",
       "Import the certificate with its private key, or name one that is there."},
      {"info-unreadable", kError, "A property list of the app cannot be read.", kAskMaker},
      {"input-unreadable", kError, "The input cannot be read, or is of no known kind.",
       "Check the path, the permissions and the file itself."},
      {"intune-linked", kError, "The app is built with Intune's library.",
       "Wrap an app that was not made for Intune."},
      {"item-unreadable", kError, "A file in the archive cannot be unpacked.",
       "Get the archive again; it was damaged or made to exhaust memory."},
      {"link-leads-out", kError, "A link leads out of the app.", kAskMaker},
      {"link-refused", kError, "The toolkit does not take a link of the input.", kAskMaker},
      {"manifest-checksum", kError, "The manifest's checksum differs from that in the app.",
       "Wrap the app again."},
      {"manifest-icon", kWarning, "An icon of the manifest is missing or of another size.",
       "Wrap the app again."},
      {"manifest-identifier", kError, "The manifest names another app than the package holds.",
       "Wrap the app again; do not exchange the archive in a package."},
      {"manifest-missing", kError, "The package has no manifest.", "Wrap the app again."},
      {"manifest-size", kWarning, "The manifest states another size of the app.",
       "Wrap or sign the package again; refreshOnResign renews the size."},
      {"manifest-unreadable", kError, "The manifest is no sound XML document.",
       "Wrap the app again."},
      {"modern-image", kNote, "Only the setting modernImages lets this app be wrapped.",
       "Leave modernImages on in tovrek.conf."},
      {"package-app-missing", kNote, "The package holds no archive of the app.",
       "Nothing, when the app comes from a store; else wrap it again."},
      {"policy-unreadable", kError, "A policy file is missing or no sound XML document.",
       "Wrap the app again with sound policy files."},
      {"profile-chosen", kNote, "Of the profiles in the folder this one fits the app best.",
       "Nothing; give it to -Profile."},
      {"profile-dates", kError, "The profile has expired or is not valid yet.",
       "Renew the profile in the developer portal and wrap or sign again."},
      {"profile-development", kNote, "The profile is for development.",
       "Use a distribution profile before handing the app out."},
      {"profile-devices", kNote, "The profile admits listed devices only.",
       "Use an in-house profile, or keep the list of devices complete."},
      {"profile-expires-soon", kWarning, "A profile ends within the days asked for.",
       "Renew the profile and sign again before that day."},
      {"profile-missing", kError, "A bundle that needs a provisioning profile has none.",
       kGetProfile},
      {"profile-platform", kError, "The profile is for another platform.", kGetProfile},
      {"profile-store", kError, "The profile is for the store.", kGetProfile},
      {"profile-unreadable", kError, "The provisioning profile cannot be read.", kGetProfile},
      {"sdk-app", kError, "The app is built with the app SDK, and is not wrapped.",
       "Prepare it with SdkPrep instead."},
      {"signature-adhoc", kError, "The code is signed by nobody.", kSignAgain},
      {"signature-invalid", kError, "Code, a sealed file or the signature was changed.",
       kSignAgain},
      {"signature-missing", kError, "The code is not signed.", kSignAgain},
      {"slice-damaged", kWarning, "The image of a slice contradicts itself.", kAskMaker},
      {"system-above-app", kWarning, "Code inside needs a newer system than the app names.",
       "Raise the app's lowest system with -minPlatform, or ask for another build."},
      {"team-mismatch", kError, "Code inside is signed by another team than the app.", kSignAgain},
      {"unexpected-change", kError, "Something changed that a wrap does not change.",
       "Compare with the maker's original; wrap it again if nobody can explain the difference."},
      {"unsafe-name", kError, "A name in the archive leads out of it or stands there twice.",
       kAskMaker},
      {"unsupported-app", kError, "Apps of this kind cannot be wrapped.", kAskMaker},
      {"wrap-engine", kError, "The executable is refused by the rules for images.",
       "Ask the maker for a build by a current linker, with the reason given here."},
      {"wrapped-already", kError, "The app is wrapped already.",
       "Take the original app, or renew the signature with Sign."},
  };
  return kKinds;
}

const FindingKind* findingKind(std::string_view code) {
  const auto& kinds = findingKinds();
  const auto found = std::ranges::find(kinds, code, &FindingKind::code);
  return found == kinds.end() ? nullptr : &*found;
}

const char* nameOf(Severity severity) {
  constexpr const char* kNames[] = {"note", "warning", "error"};
  return kNames[static_cast<size_t>(severity)];
}

Finding makeFinding(std::string_view code, std::string place, std::string reason) {
  const FindingKind* kind = findingKind(code);
  assert(kind != nullptr);
  if (kind == nullptr) return {std::string(code), Severity::kError, place, reason, ""};
  return {kind->code, kind->severity, std::move(place), std::move(reason), kind->remedy};
}

FindingCounts countOf(const Findings& findings) {
  FindingCounts counts;
  for (const Finding& finding : findings) {
    size_t& count = finding.severity == Severity::kError     ? counts.errors
                    : finding.severity == Severity::kWarning ? counts.warnings
                                                             : counts.notes;
    ++count;
  }
  return counts;
}

void sortFindings(Findings* findings) {
  const auto key = [](const Finding& finding) {
    return std::tie(finding.code, finding.place, finding.reason);
  };
  std::ranges::stable_sort(*findings, [&](const Finding& a, const Finding& b) {
    return a.severity != b.severity ? a.severity > b.severity : key(a) < key(b);
  });
  const auto repeated =
      std::unique(findings->begin(), findings->end(),
                  [&](const Finding& a, const Finding& b) { return key(a) == key(b); });
  findings->erase(repeated, findings->end());
}

}  // namespace tovrek::inspect
