// Choosing the profile for a bundle among many.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "device/Profile.h"
#include "host/ErrorText.h"

namespace tovrek::device {

struct StoredProfile {
  std::string path;
  Profile profile;
};

// The profiles that lie in a folder itself (.mobileprovision, .provisionprofile), by file name. One
// that cannot be read is left out, with "PATH: reason" in `unreadable`. False, with the reason,
// when the folder cannot be read.
bool readProfiles(const std::string& folder, std::vector<StoredProfile>* profiles,
                  std::vector<std::string>* unreadable, ErrorText* error);

struct ProfileWish {
  std::string bundleIdentifier;
  std::function<bool(const Certificate&)> isSigner;
  bool forStore = false;  // else for devices
  double now = 0;
};

// The best of those that are valid, of the wanted kind, list the signer and cover the identifier:
// one for exactly this identifier before the longest that ends in "*", then the one that expires
// last, then the first. Null when there is none.
const StoredProfile* bestProfile(const std::vector<StoredProfile>& profiles,
                                 const ProfileWish& wish);

}  // namespace tovrek::device
