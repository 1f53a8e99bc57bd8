// A host root whose programs are shell scripts, to see exact command lines or force a failure.
#pragma once

#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

// In force for the life of the object.
class ScriptedHostRoot {
 public:
  ScriptedHostRoot() : environment_("TOVREK_HOST_ROOT", folder_.path()) {}

  // Installs usr/bin/`name`, a /bin/sh script of these lines. Its calls are recorded.
  void addTool(const std::string& name, const std::string& script);
  // One text per call of the tool: its arguments, joined by single blanks.
  std::vector<std::string> calls(const std::string& name) const;

 private:
  TemporaryFolder folder_;
  ScopedEnvironment environment_;
};

}  // namespace tovrek::test
