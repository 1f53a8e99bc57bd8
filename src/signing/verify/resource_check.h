// Whether a bundle's files are those that its seal lists.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "formats/PlistValue.h"
#include "signing/CodeObject.h"

namespace tovrek::signing {

// Of files and pages that are listed with several digests: all, or the strongest alone, which is
// the one that current systems go by.
enum class DigestsToCheck { kAll, kStrongest };

// Code inside a bundle that its seal names by a requirement instead of by hashes of its files.
struct NestedCode {
  std::string path;
  std::string requirement;  // text
};

// The property list that lists a bundle's files, read once for all that is asked of it.
class BundleSeal {
 public:
  // Of a text that is no such list nothing agrees with any bundle.
  explicit BundleSeal(const std::string& text) : list_(parsePlist(text)) {}

  // One line for each difference ("file modified: PATH", "file missing: PATH", "file added: PATH"),
  // sorted by kind and path; none when all is as sealed.
  std::vector<std::string> differences(const CodeObject& object, DigestsToCheck digests) const;
  std::vector<NestedCode> nestedCode(const CodeObject& object) const;

 private:
  // What the seal holds under the later key, else under the first; null without either.
  const PlistDictionary* part(const char* first, const char* later) const;
  bool isSecondVersion() const;

  std::optional<PlistValue> list_;
};

// Symbolic links whose target does not lie in the bundle.
std::vector<std::string> linksLeadingOut(const CodeObject& object);

}  // namespace tovrek::signing
