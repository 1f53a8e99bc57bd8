// A host root of scripted programs that record how they were called.
#pragma once

#include <string>
#include <vector>

#include "tests/support/TemporaryFolder.h"

namespace tovrek::test {

// Is the host root of this process for the life of the object. Programs that it does not hold are
// the machine's own.
class FakeHostRoot {
 public:
  FakeHostRoot();

  // Makes a shell script that records its call and then does `body`: "codesign" stands for
  // /usr/bin/codesign; an absolute path is taken as it is.
  void program(const std::string& name, const std::string& body = "exit 0") const;
  // Makes any other file of the host.
  void file(const std::string& systemPath, const std::string& contents) const;

  // All calls so far in their order, each as "name|argument|argument...". Every occurrence of
  // `folder` (not empty) is shown as "@".
  std::vector<std::string> calls(const std::string& folder = {}) const;
  void forgetCalls() const;

 private:
  TemporaryFolder folder_;
  ScopedEnvironment variable_;
};

}  // namespace tovrek::test
