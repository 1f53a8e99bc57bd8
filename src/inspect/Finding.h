// What Inspect has to say against an input: one finding for each reason.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tovrek::inspect {

enum class Severity {
  kNote,     // worth knowing
  kWarning,  // works today, or on some devices
  kError,    // a device or the toolkit will refuse it
};
const char* nameOf(Severity severity);

struct Finding {
  std::string code;  // stable, such as "profile-expired"
  Severity severity = Severity::kError;
  std::string place;   // the file, slice or key that it is about; empty for the whole input
  std::string reason;  // one sentence: what was found
  std::string remedy;  // one sentence: what to do about it
};
using Findings = std::vector<Finding>;

// What is known of a code apart from its place.
struct FindingKind {
  const char* code;
  Severity severity;
  const char* meaning;
  const char* remedy;
};
// All of them, sorted by code.
const std::vector<FindingKind>& findingKinds();
// Null for a code that there is not.
const FindingKind* findingKind(std::string_view code);

// A finding of that code, which must be one of findingKinds().
Finding makeFinding(std::string_view code, std::string place, std::string reason);
// Adds makeFinding() to the list.
inline void report(Findings* findings, std::string_view code, std::string place,
                   std::string reason) {
  findings->push_back(makeFinding(code, std::move(place), std::move(reason)));
}

struct FindingCounts {
  size_t errors = 0, warnings = 0, notes = 0;
};
FindingCounts countOf(const Findings& findings);
// Errors first, then by code and place; those that say the same are left out.
void sortFindings(Findings* findings);

}  // namespace tovrek::inspect
