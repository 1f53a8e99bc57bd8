#include "tests/support/ScriptedHostRoot.h"

#include <filesystem>
#include <fstream>

namespace tovrek::test {

void ScriptedHostRoot::addTool(const std::string& name, const std::string& script) {
  const std::string log = folder_.file(name + ".calls");
  const std::string path =
      folder_.write("usr/bin/" + name, "#!/bin/sh\necho \"$*\" >> '" + log + "'\n" + script + "\n");
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

std::vector<std::string> ScriptedHostRoot::calls(const std::string& name) const {
  std::vector<std::string> lines;
  std::ifstream log(folder_.file(name + ".calls"));
  for (std::string line; std::getline(log, line);) lines.push_back(line);
  return lines;
}

}  // namespace tovrek::test
