#include "host/own_programs.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>

#include "host/HostRoot.h"
#include "host/file_io.h"
#include "host/host_info.h"
#include "host/paths.h"
#include "host/platform.h"
#include "host/spawning.h"
#include "host/terminal.h"
#include "host/version.h"

namespace tovrek {
namespace {

// Of the process, and set once: which programs were linked into it.
constinit std::span<const OwnProgram> ownPrograms;

bool areCopiesWanted() {
  const char* choice = std::getenv("TOVREK_COPIES");
  return choice == nullptr || std::string_view(choice) != "0";
}

// Whether the file begins as one that was built with this program. Linkers put notes in front.
bool hasMark(const std::string& path, const std::string& name) {
  const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  std::array<char, 4096> start{};
  const ssize_t got = file.valid() ? ::read(file.get(), start.data(), start.size()) : -1;
  if (got < 4) return false;
  const std::string_view bytes(start.data(), static_cast<size_t>(got));
  return bytes.starts_with("\177ELF") && bytes.find(markOf(name)) != bytes.npos;
}

// Whether the file is that companion of the host root beside this program, and that in force.
bool isOfHostRootBeside(const std::string& path, const std::string& name) {
  const std::string beside = joinPath(programFolder(), "host");
  return HostRoot::folder() == beside && path == joinPath(beside, "usr/bin/" + name) &&
         hasMark(path, name);
}

}  // namespace

void setOwnPrograms(std::span<const OwnProgram> programs) {
  ownPrograms = programs;
}

std::string markOf(const std::string& name) {
  return "tovrek program " + name + " " + kToolVersion + "\n";
}

const OwnProgram* ownProgramAt(const std::string& path) {
  const auto program = std::ranges::find_if(ownPrograms, [&](const OwnProgram& own) {
    return lastPathComponent(path) == own.rules.name;
  });
  if (program == ownPrograms.end() || !areCopiesWanted()) return nullptr;
  return isOfHostRootBeside(path, program->rules.name) ? &*program : nullptr;
}

bool isOwnCompanion(const std::string& path) {
  return isOfHostRootBeside(HostRoot::resolve(path), lastPathComponent(path));
}

void endAs(const OwnProgram& program, const std::string& path,
           std::vector<std::string> arguments) noexcept {
  forgetPassingLine();
  // The parent's failures to write are not this program's.
  for (FILE* stream : {stdin, stdout, stderr}) ::clearerr(stream);
  setProcessName(program.rules.name);
  setProgramPath(path);
  std::vector<char*> words = pointersTo(arguments);
  const int status =
      runProgram(static_cast<int>(arguments.size()), words.data(), program.run, program.rules);
  // Nothing of the parent's is flushed, removed or destroyed here.
  ::fflush(stdout);
  ::fflush(stderr);
  ::_exit(status);
}

}  // namespace tovrek
