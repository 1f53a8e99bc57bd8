// What a run has reason to read.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "context/RunContext.h"
#include "converter/Request.h"

namespace tovrek::toolkit {

// Files, and folders with all that is in them: the inputs, the installation, the keychains that are
// searched, the system's programs, libraries and configuration, and what links in these lead to.
// The folders that a run writes to are not among them.
//
// None when that cannot be told: the host root is not our own, so that its programs are somebody
// else's, or a keychain names a key on a token, whose module reads wherever its tokens are kept.
std::optional<std::vector<std::string>> readablePlaces(const Request& request,
                                                       const RunContext& context);

}  // namespace tovrek::toolkit
