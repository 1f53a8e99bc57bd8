// Reading and judging one input of any kind.
#pragma once

#include <string>
#include <vector>

#include "inspect/judges.h"
#include "inspect/model.h"

namespace tovrek::inspect {

// Whether Inspect knows what to do with a file or folder of this name.
bool isKnownName(const std::string& path);
// The inputs in a folder, sorted by path: what is known by its name, at any depth but not inside of
// another. None, with the reason, for a folder that cannot be listed.
std::optional<std::vector<std::string>> inputsIn(const std::string& folder, ErrorText* error);

// The app of an input, with the tree that it lies in, for comparisons.
struct OpenApp {
  std::unique_ptr<Tree> outer;  // the package's, where there is one
  std::unique_ptr<Tree> tree;
  std::string folder;  // in `tree`
  std::string onDisk;  // the app's folder; empty for one in an archive
};

// Reads and judges. Never fails: what cannot be read is a subject of kind kUnreadable with a
// finding that says so. `open` gets the app, when one is asked for and there is one.
Subject inspectInput(const std::string& path, const Rules& rules, OpenApp* open = nullptr);

}  // namespace tovrek::inspect
