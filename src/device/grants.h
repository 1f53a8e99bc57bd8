// Which entitlements a profile grants.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "formats/PlistValue.h"

namespace tovrek::device {

// Whether a granted text admits another one: the same, or what a trailing "*" stands for.
bool admits(const std::string& granted, const std::string& wanted);

// What is granted of a wanted value: the whole of it, or those entries of a list that are. None
// when nothing is. A granted "*" admits any text and any list of texts; lists are compared entry by
// entry; everything else has to be equal.
std::optional<PlistValue> grantedPart(const PlistValue& granted, const PlistValue& wanted);

// The keys of `wanted` that `granted` does not admit, or admits in part only.
std::vector<std::string> notGranted(const PlistDictionary& granted, const PlistDictionary& wanted);

}  // namespace tovrek::device
