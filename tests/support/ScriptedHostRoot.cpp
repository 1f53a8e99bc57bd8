#include "tests/support/ScriptedHostRoot.h"

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/paths.h"

namespace tovrek::test {
namespace {

std::vector<std::string> linesOf(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) lines.push_back(line);
  return lines;
}

}  // namespace

void ScriptedHostRoot::addTool(const std::string& name, const std::string& script) {
  const std::string tool = lastPathComponent(name);
  std::ostringstream text;
  text << "#!/bin/sh\necho \"$*\" >> '" << folder_.file(tool + ".calls") << "'\n"
       << "{ printf %s '" << tool << "'; for a in \"$@\"; do printf '|%s' \"$a\"; done; "
       << "printf '\\n'; } >> '" << folder_.file("all calls") << "'\n"
       << script << "\n";
  const std::string place = name.starts_with('/') ? name.substr(1) : joinPath("usr/bin", name);
  const std::string path = folder_.write(place, text.str());
  std::filesystem::permissions(path, std::filesystem::perms::owner_all);
}

void ScriptedHostRoot::addFile(const std::string& systemPath, const std::string& contents) const {
  folder_.write(systemPath.substr(1), contents);
}

std::vector<std::string> ScriptedHostRoot::calls(const std::string& name) const {
  return linesOf(folder_.file(name + ".calls"));
}

std::vector<std::string> ScriptedHostRoot::allCalls(const std::string& folder) const {
  std::vector<std::string> lines = linesOf(folder_.file("all calls"));
  if (folder.empty()) return lines;
  for (std::string& line : lines) {
    for (size_t at = 0; (at = line.find(folder, at)) != std::string::npos;) {
      line.erase(at, folder.size() - 1);
      line[at] = '@';
    }
  }
  return lines;
}

void ScriptedHostRoot::forgetCalls() const {
  for (const auto& item : std::filesystem::directory_iterator(folder_.path())) {
    if (item.is_regular_file()) std::filesystem::remove(item.path());
  }
}

}  // namespace tovrek::test
