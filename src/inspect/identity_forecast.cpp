#include "inspect/identity_forecast.h"

#include <fmt/format.h>

#include <algorithm>

#include "formats/hex.h"
#include "host/paths.h"
#include "inspect/text.h"
#include "keychain/identities.h"
#include "keychain/locations.h"

namespace tovrek::inspect {
namespace {

constexpr size_t kMostNames = 20;

std::string withoutBlanks(std::string text) {
  std::erase(text, ' ');
  return text;
}

// A digest may be given in groups of digits; names keep their blanks.
std::string asDigest(const std::string& nameOrDigest) {
  constexpr size_t kDigits = 40;
  const std::string digits = withoutBlanks(nameOrDigest);
  return digits.size() == kDigits && bytesFromHex(digits) ? digits : nameOrDigest;
}

size_t commonLength(std::string_view a, std::string_view b) {
  const auto [left, right] = std::ranges::mismatch(a, b);
  return static_cast<size_t>(left - a.begin());
}

// A sentence about the name that begins most like the wanted one.
std::string closestTo(const std::string& wanted, const std::vector<std::string>& names) {
  if (names.empty()) return "it lists none";
  const auto closest = std::ranges::max_element(
      names, {}, [&](const std::string& name) { return commonLength(name, wanted); });
  const size_t same = commonLength(*closest, wanted);
  const auto from = [&](const std::string& text) {
    return same < text.size() ? fmt::format("\"{}\"", text.substr(same)) : "its end";
  };
  const size_t shown = std::min(names.size(), kMostNames);
  return fmt::format("there are: {}; \"{}\" differs from character {} on: {} for {}",
                     fmt::join(names.begin(), names.begin() + static_cast<ptrdiff_t>(shown), ", "),
                     *closest, same + 1, from(*closest), from(wanted));
}

std::vector<keychain::Keychain> openKeychains(const std::optional<std::string>& named,
                                              Findings* obstacles) {
  if (!named) return keychain::openSearchList();
  std::vector<keychain::Keychain> opened;
  ErrorText reason;
  if (auto one = keychain::openKeychain(*named, &reason)) {
    opened.push_back(std::move(*one));
  } else {
    report(obstacles, "identity", *named, "the keychain cannot be opened: " + reason.text());
  }
  return opened;
}

}  // namespace

bool listsCertificate(const ProfileDetails& profile, const std::string& nameOrDigest) {
  return std::ranges::any_of(profile.grants.certificates, [&](const Certificate& each) {
    return each.inferredLabel() == nameOrDigest ||
           equalsIgnoringCase(each.sha1Hex(), withoutBlanks(nameOrDigest));
  });
}

std::optional<signing::CertificateChain> judgeIdentity(
    const std::string& nameOrDigest, const std::optional<std::string>& keychainName,
    const std::optional<ProfileDetails>& profile, Findings* obstacles, Findings* remarks) {
  const auto keychains = openKeychains(keychainName, obstacles);
  bool isHeld = false;
  for (const keychain::Keychain& each : keychains) {
    isHeld |= std::ranges::any_of(each.certificates(), [&](const Certificate& certificate) {
      return equalsIgnoringCase(certificate.sha1Hex(), withoutBlanks(nameOrDigest));
    });
  }
  std::vector<std::string> labels;
  if (profile) {
    for (const Certificate& each : profile->grants.certificates) {
      labels.push_back(each.inferredLabel());
    }
    const bool isListed = std::ranges::find(labels, nameOrDigest) != labels.end();
    if (!isListed && !isHeld) {
      report(obstacles, "certificate-not-in-profile", profile->path,
             fmt::format("the profile lists no certificate \"{}\"; {}", nameOrDigest,
                         closestTo(nameOrDigest, labels)));
    } else if (!listsCertificate(*profile, nameOrDigest)) {
      // A wrap takes it from the keychain without asking the profile; a device will not.
      report(remarks, "certificate-not-in-profile", profile->path,
             fmt::format("a device will refuse it: the profile does not list {}", nameOrDigest));
    }
  }
  const auto found = keychain::findSigningIdentity(keychains, asDigest(nameOrDigest));
  if (found.outcome == keychain::Lookup::kFound) {
    std::vector<Certificate> chain = {found.identity->leaf};
    chain.insert(chain.end(), found.identity->chain.begin(), found.identity->chain.end());
    return signing::CertificateChain(std::move(chain));
  }
  std::vector<std::string> names;
  for (const keychain::Keychain& each : keychains) {
    for (const keychain::Identity& identity : each.identities()) {
      names.push_back(identity.leaf.inferredLabel());
    }
  }
  std::string reason = found.text;
  if (!found.detail.empty()) reason += "; " + found.detail;
  if (found.outcome == keychain::Lookup::kNotFound) reason += "; " + closestTo(nameOrDigest, names);
  report(obstacles, "identity", nameOrDigest, std::move(reason));
  return std::nullopt;
}

}  // namespace tovrek::inspect
