// Reading the parts of an input. None of these judges; what cannot be read is told in the data or
// in the findings.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "inspect/model.h"

namespace tovrek::inspect {

// The slices of a Mach-O file. Empty, with the reason, for what is none.
std::vector<Slice> readSlices(std::string_view bytes, std::string* problem);
// For each architecture a digest over the contents of all sections, which neither an insertion nor
// a signature changes.
std::map<std::string, std::string> codeDigests(std::string_view bytes);
// Whether the bytes begin as those of a Mach-O file do.
bool looksLikeCode(std::string_view bytes);

// A profile's file; none, with the reason, for what is no profile.
std::optional<ProfileDetails> readProfileDetails(std::string_view bytes, std::string path,
                                                 ErrorText* error);

// The app in this folder of the tree; `name` is that of the folder, which may be the tree's root.
App readApp(const Tree& tree, const std::string& folder, const std::string& name,
            Findings* findings);
// The path of the app in an unpacked .ipa; none, with a finding, when there is none.
std::optional<std::string> findApp(const Tree& tree, Findings* findings);

// The package around the app.
Package readPackage(const Tree& tree, Findings* findings);

// A picture; the bytes are kept for those that a page can show.
Icon readIcon(const Tree& tree, const std::string& path);

// "12.4" for x << 16 | y << 8 | z.
std::string versionText(uint32_t packed);
// Whether version `a` is higher than `b`, part by part; an empty one is the lowest.
bool isHigherVersion(std::string_view a, std::string_view b);

}  // namespace tovrek::inspect
