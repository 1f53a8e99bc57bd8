// New identifiers for the bundles inside an app that gets one.
#pragma once

#include <string>
#include <vector>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Whether the run gives the app another identifier, or wrapping has given it one before, and a
// setting says that nested ones follow.
bool renamesExtensions(const Run& run);

// The identifier with the app's new one in place of its old one, where it is that or begins with it
// and a dot; else as it is, and also when the run renames nothing.
std::string renamedIdentifier(const Run& run, const std::string& identifier);

// Gives those bundles their new identifiers, and everything in their property lists that names one
// of them. False, with file and reason.
bool renameBundles(const Run& run, const std::vector<std::string>& bundles, ErrorText* error);

}  // namespace tovrek::converter
