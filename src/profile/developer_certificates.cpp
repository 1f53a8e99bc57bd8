#include "profile/developer_certificates.h"

#include <optional>
#include <utility>

namespace tovrek {

std::vector<Certificate> developerCertificates(const PlistDictionary& profile) {
  std::vector<Certificate> certificates;
  const PlistValue::Array* entries = arrayForKey(profile, "DeveloperCertificates");
  if (entries == nullptr) return certificates;
  for (const PlistValue& entry : *entries) {
    if (entry.data() == nullptr) continue;
    std::optional<Certificate> certificate = Certificate::fromDer(entry.data()->bytes);
    if (certificate) certificates.push_back(std::move(*certificate));
  }
  return certificates;
}

}  // namespace tovrek
