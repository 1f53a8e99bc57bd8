// The settings file: "tovrek.conf".
#pragma once

#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "settings/Settings.h"

namespace tovrek {

// Reads the file that $TOVREK_CONF names, else "tovrek.conf" beside the program. Without the
// latter everything is off; a file that is named must be there.
bool readSettings(Settings* out, ErrorText* error);

// Lines "name = yes" or "name = no"; "#" starts a comment; blank lines count for nothing. False,
// with the file and the line in the text, for any other line, an unknown name, and a name that
// stands there twice.
bool parseSettings(std::string_view contents, const std::string& path, Settings* out,
                   ErrorText* error);

}  // namespace tovrek
