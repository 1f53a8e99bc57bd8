#include "tests/support/FakeHostRoot.h"

#include <sys/stat.h>

#include <cstdio>
#include <sstream>

#include "host/files.h"
#include "host/paths.h"
#include "host/process.h"

namespace tovrek::test {

FakeHostRoot::FakeHostRoot() : variable_("TOVREK_HOST_ROOT", folder_.path()) {}

void FakeHostRoot::program(const std::string& name, const std::string& body) const {
  const std::string target = name.starts_with('/') ? name.substr(1) : "usr/bin/" + name;
  const std::string script =
      "#!/bin/sh\n{ printf %s " + quotedForShell(lastPathComponent(name)) +
      "; for a in \"$@\"; do printf '|%s' \"$a\"; done; printf '\\n'; } >> " +
      quotedForShell(folder_.file("calls")) + "\n" + body + "\n";
  ::chmod(folder_.write(target, script).c_str(), 0755);
}

void FakeHostRoot::file(const std::string& systemPath, const std::string& contents) const {
  folder_.write(systemPath.substr(1), contents);
}

std::vector<std::string> FakeHostRoot::calls(const std::string& folder) const {
  std::string text;
  if (fileExists(folder_.file("calls"))) text = contentsOf(folder_.file("calls"));
  for (size_t at = 0; !folder.empty() && (at = text.find(folder, at)) != std::string::npos;) {
    text.replace(at, folder.size(), "@");
  }
  std::vector<std::string> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(line);
  return lines;
}

void FakeHostRoot::forgetCalls() const {
  std::remove(folder_.file("calls").c_str());
}

}  // namespace tovrek::test
