// Runs engine operations and turns whatever they end with into one comparable text.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <span>
#include <string>

#include "engine/file_check.h"
#include "engine/file_insertion.h"
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

// Logs nowhere.
inline const WrapperLogger& silence() {
  static const WrapperLogger logger("Test", std::nullopt);
  return logger;
}

inline std::string checkBytes(const std::string& bytes, const macho::CheckOptions& options = {}) {
  return outcomeOf([&] { macho::checkFile(std::as_bytes(std::span(bytes)), options, silence()); });
}

inline std::string checkAt(const std::string& path, const macho::CheckOptions& options = {}) {
  return outcomeOf([&] { check(path, options, silence()); });
}

inline std::string insertAt(const std::string& path, int binaryType = kApplication,
                            bool libraryType = false, Settings settings = {}) {
  return outcomeOf([&] { addDylib(binaryType, path, libraryType, settings, silence()); });
}

}  // namespace tovrek::test
