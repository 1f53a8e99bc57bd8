// A provisioning profile as a device reads it.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "formats/Certificate.h"
#include "formats/PlistValue.h"
#include "host/ErrorText.h"
#include "signing/FileSource.h"

namespace tovrek::device {

inline constexpr const char* kEmbeddedProfile = "embedded.mobileprovision";

struct Profile {
  std::string name;
  std::string applicationIdentifier;  // prefix and identifier; the latter may end in "*"
  std::string team;                   // of the entitlements, else the first that it lists
  double created = 0;                 // seconds since 1970, here and below; 0 where not given
  double expires = 0;
  std::vector<std::string> platforms;  // empty in profiles older than this list
  std::vector<Certificate> certificates;
  bool allDevices = false;                          // any device of the organisation
  std::optional<std::vector<std::string>> devices;  // these alone; none in profiles for a store
  PlistDictionary entitlements;                     // what it grants

  // Up to the first dot of its identifier.
  std::string prefix() const;
  bool lists(const Certificate& certificate) const;
  // Whether it is for this bundle identifier.
  bool covers(const std::string& bundleIdentifier) const;
  // Whether iOS devices read it at all.
  bool isForDevices() const;
  bool isForStore() const { return !allDevices && !devices; }
  bool isValidAt(double time) const { return created <= time && time < expires; }
};

// Of a decoded profile. Missing or odd entries are left empty.
Profile profileOf(const PlistDictionary& plist);
// Decodes a file. Whoever signed it is not judged. None, with the reason, for what is no profile.
std::optional<Profile> readProfile(const std::string& path, ErrorText* error,
                                   const signing::FileSource& files = signing::FileSource::disk());

}  // namespace tovrek::device
