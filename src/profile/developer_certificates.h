// The certificates that a decoded profile lists.
#pragma once

#include <vector>

#include "formats/Certificate.h"
#include "formats/PlistValue.h"

namespace tovrek {

// In the profile's order. Entries that are no certificate are left out.
std::vector<Certificate> developerCertificates(const PlistDictionary& profile);

}  // namespace tovrek
