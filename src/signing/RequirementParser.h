// From the text of a requirement to its tree. The language is that of Apple's published "Code
// Signing Requirement Language", with the spellings that codesign itself prints.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "signing/RequirementExpression.h"

namespace tovrek::signing {

// One requirement, such as: identifier "com.example.app" and anchor apple generic. Certificates
// named by a path are read. None, with "invalid requirement: line L, column C: ..." for what is
// none.
std::optional<RequirementExpression> parseRequirement(std::string_view source, ErrorText* error);

// A set, such as: designated => anchor apple library => always. Compiled requirements by type.
std::optional<std::map<uint32_t, std::string>> parseRequirementSet(std::string_view source,
                                                                   ErrorText* error);

}  // namespace tovrek::signing
