#include "inspect/model.h"

#include <algorithm>

namespace tovrek::inspect {

// In the order of the enumerators.
const char* nameOf(CodeKind kind) {
  constexpr const char* kNames[] = {"app",       "extension", "watch app",
                                    "framework", "bundle",    "library"};
  return kNames[static_cast<size_t>(kind)];
}

const char* nameOf(SubjectKind kind) {
  constexpr const char* kNames[] = {"app",     "package",      "code",
                                    "profile", "certificates", "unreadable"};
  return kNames[static_cast<size_t>(kind)];
}

std::vector<Subject::Expiry> Subject::expiries() const {
  std::vector<Expiry> found;
  const auto add = [&](std::string what, double at) {
    const bool isKnown = std::ranges::any_of(
        found, [&](const Expiry& each) { return each.what == what && each.at == at; });
    if (at != 0 && !isKnown) found.push_back({std::move(what), at});
  };
  const auto addProfile = [&](const ProfileDetails& profile) {
    add("profile " + profile.grants.name, profile.grants.expires);
  };
  const auto addCode = [&](const CodeObject& object) {
    if (object.profile) addProfile(*object.profile);
    for (const Slice& slice : object.slices) {
      if (!slice.signature) continue;
      for (const Certificate& each : slice.signature->chain) {
        add("certificate " + each.signerName(), each.notAfter());
      }
    }
  };
  if (app) {
    for (const CodeObject& object : app->code) addCode(object);
  }
  for (const CodeObject& object : code) addCode(object);
  for (const ProfileDetails& profile : profiles) addProfile(profile);
  for (const Certificate& each : certificates) {
    add("certificate " + each.signerName(), each.notAfter());
  }
  std::ranges::stable_sort(found, {}, &Expiry::at);
  return found;
}

}  // namespace tovrek::inspect
