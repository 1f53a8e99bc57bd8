// What Inspect reads out of its inputs, as plain data: reports are made from this and from nothing
// else.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "device/Profile.h"
#include "formats/Certificate.h"
#include "formats/PlistValue.h"
#include "inspect/Finding.h"
#include "inspect/Tree.h"

namespace tovrek::inspect {

// The signature of one slice, as far as it can be read.
struct SliceSignature {
  std::string identifier, team;
  uint32_t flags = 0;
  uint32_t version = 0;             // of the code directory
  std::vector<std::string> hashes;  // kinds of hashes, the primary one first
  std::string cdHash;               // of the directory that systems go by, in digits
  bool isAdhoc = false;
  std::vector<Certificate> chain;  // leaf first, with issuers that the host knows
  std::optional<double> signedAt;  // as the signer claims
  std::optional<PlistDictionary> entitlements;
  bool hasDerEntitlements = false;
};

struct Slice {
  std::string architecture;
  uint32_t fileType = 0;
  std::string platform;  // "iOS", "watchOS", ...; empty where it is not stated
  std::string minimumSystem, sdk;
  std::optional<uint32_t> cryptid;  // of the encryption command; none without one
  bool isEncrypted() const { return cryptid.value_or(0) != 0; }
  std::vector<std::string> libraries;  // in load order
  std::vector<std::string> commands;   // each load command in words
  uint64_t headerRoom = 0;             // bytes between the load commands and the first data
  bool loadsManagement = false;        // the library that a wrap inserts
  std::string problem;                 // of the image; empty for none
  std::optional<SliceSignature> signature;
  std::string signatureProblem;  // why there is none; empty when there is one
};

enum class CodeKind { kApp, kExtension, kWatchApp, kFramework, kBundle, kLibrary };
const char* nameOf(CodeKind kind);

// A profile with where it was found and with what devices do not ask for.
struct ProfileDetails {
  std::string path;
  device::Profile grants;
  std::string uuid, teamName;
  const char* kind = "";  // "development", "ad hoc", "in-house", "store"
};

// A bundle or a single file with code.
struct CodeObject {
  std::string path;        // from the app's folder; empty for the app itself
  std::string executable;  // likewise; empty for none
  CodeKind kind = CodeKind::kLibrary;
  std::optional<PlistDictionary> info;  // of a bundle
  std::string identifier, version, minimumSystem;
  std::string problem;  // why its executable cannot be read; empty for none
  uint32_t permissions = 0;
  std::vector<Slice> slices;
  std::optional<ProfileDetails> profile;
};

struct Icon {
  std::string path;
  uint32_t width = 0, height = 0;  // 0 for what is no PNG file
  // The file, in the form that browsers know where it could be converted; empty for one that is too
  // large to show.
  std::string png;
};

struct App {
  std::string folder;  // "Fieldbook.app"
  std::string name, identifier, version, build, minimumSystem;
  std::vector<std::string> devices;  // "iPhone", "iPad", ...
  std::vector<std::string> architectures;
  uint64_t size = 0;
  size_t files = 0;
  bool isEncrypted = false, isWrapped = false, isSdk = false, isIntune = false;
  std::string libraryVersion;    // of the management library, where it is inside
  std::vector<CodeObject> code;  // the app first, then by path
  std::vector<Icon> icons;

  const CodeObject& main() const { return code.front(); }
};

// A managed app's package around the app.
struct Package {
  std::vector<std::pair<std::string, std::string>> manifest;  // path of the element, its text
  std::vector<std::string> policies, languages;               // files
  std::vector<std::pair<std::string, uint64_t>> files;        // with sizes
  std::vector<Icon> icons;
  std::string appArchive;  // the .ipa inside; empty for none
  std::string packagedBy, packagedAt;
};

enum class SubjectKind { kApp, kPackage, kCode, kProfile, kCertificates, kUnreadable };
const char* nameOf(SubjectKind kind);

// What a change is about, and both sides; one of them is empty for what was added or removed.
struct Change {
  std::string subject;
  std::string before, after;
};
struct ChangeGroup {
  std::string title;
  std::vector<Change> changes{};
  size_t unchanged = 0;  // what both sides have alike
};
using Comparison = std::vector<ChangeGroup>;

// Whether a wrap would succeed, by the built-in rules and by the settings at hand.
struct WrapForecast {
  bool wouldWrap = false;
  Findings obstacles;  // all of them, in the order in which a wrap meets them
  Findings remarks;    // what it would only warn of
};

// One input.
struct Subject {
  std::string path;
  SubjectKind kind = SubjectKind::kUnreadable;
  uint64_t size = 0;
  std::optional<App> app;
  std::optional<Package> package;
  std::vector<CodeObject> code;           // of a single Mach-O file
  std::vector<ProfileDetails> profiles;   // of a profile given by itself
  std::vector<Certificate> certificates;  // of a file with certificates
  bool hasKeys = false;
  Findings findings;
  std::optional<Comparison> comparison;
  std::optional<WrapForecast> forecast;

  // Everything in it that ends, with the date in seconds since 1970, soonest first.
  struct Expiry {
    std::string what;
    double at = 0;
  };
  std::vector<Expiry> expiries() const;
};

}  // namespace tovrek::inspect
