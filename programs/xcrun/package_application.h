// Making an .ipa from an app bundle.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"
#include "host/Streams.h"

namespace tovrek::xcrun {

struct PackageRequest {
  std::string app;                     // the .app folder; left as it is
  std::string output;                  // the .ipa to write or replace
  std::optional<std::string> sign;     // identity; none keeps the signature that is there
  std::optional<std::string> profile;  // provisioning profile to put into the app
  bool verbose = false;
};

// Reads "APP [-o IPA] [--sign ID] [--embed PROFILE] [--verbose]". Without -o the .ipa has the
// app's name and stands beside it.
std::optional<PackageRequest> parsePackageRequest(const std::vector<std::string>& arguments,
                                                  ErrorText* error);

// Copies the app into a "Payload" folder, puts the profile in, signs with `codesign`, keeping
// identifier and entitlements, and zips. The .ipa appears whole or not at all.
bool packageApplication(const PackageRequest& request, const Streams& streams, ErrorText* error);

}  // namespace tovrek::xcrun
