// Why the certificate that was named is not one of the profile's.
#pragma once

#include <string>

namespace tovrek {

struct Situation;

// The cause as the page on refusals names it; empty for the plain case, another certificate.
std::string causeOfCertificate(const Situation& situation);
// The names that would have matched, where the refusal is about the certificate.
std::string factsAboutCertificate(const Situation& situation);

}  // namespace tovrek
