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
  /// Leaves out what the dynamic loader does: when it gets no memory it crashes, in any program,
  /// and none of the program's own code has run by then.
  bool spareLoader = false;
};

/// All groups. Calls that this processor's kernel does not have are left out.
const std::vector<CallGroup>& callGroups();

/// The group of this name, or nullptr.
const CallGroup* findGroup(std::string_view name);

}  // namespace tovrek::faults
