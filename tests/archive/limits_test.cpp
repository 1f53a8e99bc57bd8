#include "archive/limits.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace tovrek::archive {
namespace {

struct Case {
  const char* what;
  std::vector<Entry> entries;
  const char* text;  // "" for entries that may be unpacked
};

Entry entry(std::string name, uint64_t packed = 1, uint64_t size = 1) {
  Entry made;
  made.name = std::move(name);
  made.compressedSize = packed;
  made.size = size;
  return made;
}

TEST(Limits, OfEntriesTogetherAndOfEachName) {
  constexpr Limits kLimits{.archiveEntries = 3,
                           .archiveNameBytes = 10,
                           .archiveFolders = 2,
                           .archiveFreeBytes = 1000,
                           .archiveGrowth = 10};
  const Case cases[] = {
      {"as many as may be", {entry("a"), entry("b"), entry("c")}, ""},
      {"one more",
       {entry("a"), entry("b"), entry("c"), entry("d")},
       "it holds 4 entries, beyond the limit of 3"},
      {"long", {entry("0123456789")}, ""},
      {"longer", {entry("0123456789a")}, "it holds a name of 11 bytes, beyond the limit of 10"},
      {"deep", {entry("a/b/")}, ""},
      {"deeper",
       {entry("a"), entry("a/b/c/")},
       "it holds a name of 3 folders, beyond the limit of 2"},
      {"small, however packed", {entry("a", 1, 1000)}, ""},
      {"large and hardly packed", {entry("a", 1000, 10009)}, ""},
      {"one that grows, made up for by others", {entry("a", 1, 5000), entry("b", 600, 600)}, ""},
      {"grows too much",
       {entry("a", 50, 600), entry("b", 50, 500)},
       "it holds 1100 bytes in 100 packed ones, beyond the limit of 1000"},
  };
  for (const auto& [what, entries, text] : cases) {
    std::vector<const Entry*> chosen;
    for (const Entry& each : entries) chosen.push_back(&each);
    ErrorText error;
    EXPECT_EQ(isWithin(kLimits, chosen, &error), *text == '\0') << what;
    EXPECT_EQ(error.text(), text) << what;
  }
}

}  // namespace
}  // namespace tovrek::archive
