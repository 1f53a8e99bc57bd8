// Runs engine operations and turns whatever they end with into one comparable text.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <exception>
#include <string>

#include "engine/MachORebuildErrors.h"
#include "engine/entry_points.h"
#include "tests/support/MachOBuilder.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/engine_outcome.h"

namespace tovrek::test {

// Compares files without printing them: the first place where they differ.
inline testing::AssertionResult sameBytes(const std::string& got, const std::string& wanted) {
  if (got == wanted) return testing::AssertionSuccess();
  const auto at = std::ranges::mismatch(got, wanted).in1 - got.begin();
  return testing::AssertionFailure()
         << "sizes " << got.size() << " and " << wanted.size() << ", first difference at " << at;
}

inline std::string checkBytes(const std::string& bytes, bool sdkOrder = false,
                              bool libraryType = false, macho::AcceptanceRules rules = {}) {
  static const TemporaryFolder folder;
  const std::string path = folder.write("image", bytes);
  return outcomeOf([&] { check(path, sdkOrder, libraryType, rules); });
}

}  // namespace tovrek::test
