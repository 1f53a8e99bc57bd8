// The little that has to be known of an app to choose and to judge its profile.
#pragma once

#include <optional>
#include <string>

#include "host/ErrorText.h"

namespace tovrek::batch {

// The identifier of the app in an .ipa or a package; none, with the reason, when there is no app in
// it, or none with an identifier. Only the archive's directory and one entry are read.
std::optional<std::string> appIdentifier(const std::string& path, ErrorText* error);

}  // namespace tovrek::batch
