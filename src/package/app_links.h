// Which links an app or package may hold.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/ErrorText.h"

namespace tovrek {

// Apps and packages are made by strangers, and what is done to them must not end up elsewhere. A
// link in an app is accepted when it is relative and its target, taken name by name without passing
// another link, lies in the same app; the target need not exist. It may not stand in place of what
// a run reads, writes or signs by name: Info.plist, the executable, the signature, the profile, the
// folders of nested code, everything that is inserted.
struct LinkFault {
  std::string path;
  const char* reason;
};
using LinkTargets = std::map<std::string, std::string>;  // by the links' paths
// What is wrong with links, in the order of their paths; `app` is as for judgeLinks().
std::vector<LinkFault> faultsOf(const LinkTargets& links, const std::optional<std::string>& app);

struct FoundLinks {
  std::optional<std::string> refused;  // the first, with what is wrong with it
  std::vector<std::string> dangling;   // accepted ones whose targets do not exist
};

// Judges all links below `folder`; `app` is the app in it, relative to it, or empty for the folder
// itself, and without a value where no link at all is accepted, as in packages. Links beside the
// app are refused. False, with the reason, when the folder cannot be searched.
bool judgeLinks(const std::string& folder, const std::optional<std::string>& app, FoundLinks* found,
                ErrorText* error);

// The same; a link that is not accepted fails with the one text that users see for it.
bool refuseLinks(const std::string& folder, const std::optional<std::string>& app,
                 std::vector<std::string>* dangling, ErrorText* error);

}  // namespace tovrek
