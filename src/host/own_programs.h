// Programs of this installation that this process holds as functions. A copy of it runs them at
// once, where a new process would begin with loading them and their libraries.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "host/program.h"

namespace tovrek {

struct OwnProgram {
  ProgramRun run;
  ProgramRules rules;  // its name is that of the file below "usr/bin" of the host root
  // Called before each copy: does once what all copies would have to do for themselves.
  void (*prepare)() = nullptr;
};

// To be called before any other program is started. What the span shows must live as long as the
// process.
void setOwnPrograms(std::span<const OwnProgram> programs);

// The program whose file this is; null for every other file, and where TOVREK_COPIES is "0". Only a
// file of the host root beside this program is one, and only where it tells by its mark that it was
// built of the same version: a script or a program that somebody has put in its place is started.
const OwnProgram* ownProgramAt(const std::string& path);

// Whether the system path, such as "/usr/bin/zip", stands for the companion that was built with
// this program: started by itself or by a copy, but no script or program of somebody else's.
bool isOwnCompanion(const std::string& path);

// What such a file holds in its first bytes.
std::string markOf(const std::string& name);

// For the copy, which has forgotten what its parent would remove (see signals.h): ends it as the
// program ends. `arguments` has the name that it is called by first. Streams, variables and signals
// are those of the process as they stand.
[[noreturn]] void endAs(const OwnProgram& program, const std::string& path,
                        std::vector<std::string> arguments) noexcept;

}  // namespace tovrek
