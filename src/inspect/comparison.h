// What has become of an app.
#pragma once

#include <string>

#include "inspect/model.h"

namespace tovrek::inspect {

// One side, with the files behind it.
struct ComparedApp {
  const App& app;
  const Tree& tree;
  const std::string& folder;
};

// What was added, changed and removed. What a wrap or a signature never changes and that differs
// all the same becomes a finding.
Comparison compare(const ComparedApp& original, const ComparedApp& now, Findings* findings);

}  // namespace tovrek::inspect
