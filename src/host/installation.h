// Where an installation keeps what its users read and write. Two kinds are told apart: a folder of
// one's own, which has everything in it, and that of a system's package, which nobody writes to. In
// the latter a link `local` stands beside the program and leads to the administrator's folder.
#pragma once

#include <string>

#include "host/ErrorText.h"

namespace tovrek {

// The folder of management bundles and policies: `Data` in the administrator's folder where there
// is one, else `Data` beside the program, whether it is there or not.
std::string contentFolder();

// The log of runs that name none: `logs/Orvane.log` beside the program. With a package's
// installation `tovrek/Orvane.log` in the user's state folder ($XDG_STATE_HOME, else
// ~/.local/state).
std::string defaultLogFile();

// Makes the folder of the default log where it is the user's own; `logs` beside the program is
// never made. False with the reason when that fails.
bool makeDefaultLogFolder(ErrorText* error = nullptr);

}  // namespace tovrek
