// The settings file: "tovrek.conf".
#pragma once

#include <string>
#include <string_view>

#include "host/ErrorText.h"
#include "settings/Settings.h"

namespace tovrek {

// Reads the file that $TOVREK_CONF names, else "tovrek.conf" beside the program. Without the
// latter everything is off; a file that is named must be there. $TOVREK_PROFILES, where it is set
// and not empty, stands above the file's profilesFolder; what the file says must be right all the
// same. The limits of the environment hold where the file names none.
bool readSettings(Settings* out, ErrorText* error);

// Lines "name = yes" or "name = no", for verifyResult also "strict", for profilesFolder an absolute
// path, or one from "~", in place of "yes", for a limit a whole number; "#" starts a comment; blank
// lines count for nothing.
// False, with the file and the line in the text, for any other line, an unknown name, and a name
// that stands there twice.
bool parseSettings(std::string_view contents, const std::string& path, Settings* out,
                   ErrorText* error);

}  // namespace tovrek
