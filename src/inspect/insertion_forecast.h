// Whether the engine would insert the management library into an executable.
#pragma once

#include <string>
#include <string_view>

#include "inspect/Finding.h"
#include "log/WrapperLogger.h"
#include "settings/Settings.h"

namespace tovrek::inspect {

// Inserts into copies of the slices in a private scratch folder, as a wrap would, and checks what
// came of it. `place` names the executable in the findings.
void judgeInsertion(std::string_view executable, const std::string& place, const Settings& settings,
                    Findings* obstacles, Findings* remarks);

// Whether symbols or classes of the app SDK are in the executable.
bool holdsSdkNames(std::string_view executable);

// A logger that keeps everything to itself.
WrapperLogger silentLogger();

}  // namespace tovrek::inspect
