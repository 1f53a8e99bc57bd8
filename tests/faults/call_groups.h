#pragma once

#include <linux/seccomp.h>

#include <string_view>
#include <vector>

namespace tovrek::faults {

/// What of a call tells which file it is about.
enum class Subject { kNone, kPath, kDescriptor };

/// A system call of a group.
struct Call {
  long number;
  const char* name;
  Subject subject = Subject::kNone;
  int argument = 0;                                     ///< the one that holds the subject
  bool (*applies)(const seccomp_data& data) = nullptr;  ///< which of its uses count; all without
};

/// Calls that can fail for the same reason.
struct CallGroup {
  const char* name;
  int failure;  ///< the errno that these calls fail with when the order names none
  std::vector<Call> calls;
  /// Whether these are the calls of the dynamic loader, of which one for each program counts: none
  /// of the program's own code has run by then, so that all that can come of any is a program that
  /// does not start. All other groups leave the loader's calls out.
  bool ofLoader = false;
};

/// All groups. Calls that this processor's kernel does not have are left out.
const std::vector<CallGroup>& callGroups();

/// The group of this name, or nullptr.
const CallGroup* findGroup(std::string_view name);

}  // namespace tovrek::faults
