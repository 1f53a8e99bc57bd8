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

  // Installs usr/bin/`name`, a /bin/sh script of these lines. Its calls are recorded. An absolute
  // path as the name is taken as it is.
  void addTool(const std::string& name, const std::string& script = "exit 0");
  // Installs any other file of the host.
  void addFile(const std::string& systemPath, const std::string& contents) const;

  // One text per call of the tool: its arguments, joined by single blanks.
  std::vector<std::string> calls(const std::string& name) const;
  // The calls of all tools in their order, each as "name|argument|argument". Every occurrence of
  // `folder` (unless empty) is shown as "@".
  std::vector<std::string> allCalls(const std::string& folder = {}) const;
  void forgetCalls() const;

 private:
  TemporaryFolder folder_;
  ScopedEnvironment environment_;
};

}  // namespace tovrek::test
