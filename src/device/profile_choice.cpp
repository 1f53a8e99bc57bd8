#include "device/profile_choice.h"

#include <algorithm>
#include <tuple>

#include "host/files.h"
#include "host/paths.h"

namespace tovrek::device {
namespace {

bool fits(const Profile& profile, const ProfileWish& wish) {
  return profile.isValidAt(wish.now) && profile.isForDevices() &&
         profile.isForStore() == wish.forStore && profile.covers(wish.bundleIdentifier) &&
         std::ranges::any_of(profile.certificates, wish.isSigner);
}

auto rank(const Profile& profile) {
  return std::make_tuple(!profile.applicationIdentifier.ends_with('*'),
                         profile.applicationIdentifier.size(), profile.expires);
}

}  // namespace

bool readProfiles(const std::string& folder, std::vector<StoredProfile>* profiles,
                  std::vector<std::string>* unreadable, ErrorText* error) {
  const auto names = listDirectory(folder, error);
  if (!names) return false;
  for (const std::string& name : *names) {
    const std::string extension = toLowerAscii(pathExtension(name));
    if (extension != "mobileprovision" && extension != "provisionprofile") continue;
    const std::string path = joinPath(folder, name);
    ErrorText reason;
    if (auto profile = readProfile(path, &reason)) {
      profiles->push_back({path, std::move(*profile)});
    } else {
      unreadable->push_back(path + ": " + reason.text());
    }
  }
  return true;
}

const StoredProfile* bestProfile(const std::vector<StoredProfile>& profiles,
                                 const ProfileWish& wish) {
  const StoredProfile* best = nullptr;
  for (const StoredProfile& each : profiles) {
    if (!fits(each.profile, wish)) continue;
    if (best == nullptr || rank(each.profile) > rank(best->profile)) best = &each;
  }
  return best;
}

}  // namespace tovrek::device
