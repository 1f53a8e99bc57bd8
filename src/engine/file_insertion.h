// Insertion of the libraries' load commands into thin files.
//
// Failures are thrown as MachORebuildErrors. Traces go to the logger. Apart from the order of the
// libraries that are there already, nothing is validated.
#pragma once

#include <string>

#include "engine/binary_type.h"
#include "log/WrapperLogger.h"
#include "settings/Settings.h"

namespace tovrek {

// Inserts into the file in place. Standard error is told of the library's place, unless the
// insertion is only a trial.
void addDylib(int binaryType, const std::string& path, bool libraryType, Settings settings,
              const WrapperLogger& logger, bool announces = true);

// Throws whatever the insertion with a strict view of the header's room would end with before it
// changes anything.
void checkInsertion(int binaryType, const std::string& path, bool libraryType,
                    const WrapperLogger& logger);

}  // namespace tovrek
