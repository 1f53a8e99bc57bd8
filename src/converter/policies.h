// The policy definition of an app, its defaults file, and the policy texts in other languages.
#pragma once

#include <string>
#include <vector>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

bool copyPolicyXMLToDir(const Run& run, const std::string& packageDir, const std::string& appPath,
                        const std::vector<std::string>& policyLanguages, ErrorText* error);
bool constructDefaultWexPolicesXMLFile(const WrapperLogger& log, const std::string& source,
                                       const std::string& target, ErrorText* error);

}  // namespace tovrek::converter
