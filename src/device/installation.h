// What an installer of a device would refuse in an app.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "device/Finding.h"
#include "device/Profile.h"
#include "formats/Certificate.h"
#include "formats/PlistValue.h"
#include "host/ErrorText.h"
#include "signing/verify/resource_check.h"

namespace tovrek::device {

// What is known of one app, extension or watch app when its profile is judged.
struct BundleFacts {
  std::string place;
  std::string identifier;  // CFBundleIdentifier
  std::optional<Certificate> signer;
  std::optional<PlistDictionary> entitlements;  // of its signature; none without any
};

// The points that lie between a bundle and its profile: dates, kind and platform of the profile,
// identifier, certificate, entitlements. Needs no files.
Findings judgeProfile(const Profile& profile, const BundleFacts& bundle, double now);

// The app or watch app that a nested bundle lies in, and the outermost one.
struct Family {
  std::string enclosing, app;  // identifiers
};
// What must agree between an app and a bundle that belongs to it, by the bundle's Info.plist. Needs
// no files.
Findings judgeFamily(const std::string& place, const PlistDictionary& info, const Family& family);

// Everything about an unpacked app: its own code and all code inside of it, each seal and each
// page hash read anew, and the points above for each bundle that needs a profile. Sorted by place;
// empty for an app that would be installed. A file or folder that cannot be read is an error:
// false, with the reason. Who has just signed the app may have the strongest digests checked alone.
bool judgeApp(const std::string& appPath, double now, Findings* findings, ErrorText* error,
              signing::DigestsToCheck digests = signing::DigestsToCheck::kAll,
              const signing::FileSource& files = signing::FileSource::disk());

// Bundles with an executable of their own that take a profile, anywhere in the app: extensions,
// watch apps, app clips. Inner ones first. The app itself is not among them.
bool findProfiledBundles(const std::string& appPath, std::vector<std::string>* paths,
                         ErrorText* error);

}  // namespace tovrek::device
