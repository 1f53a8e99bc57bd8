// Which apps may go on: the steps that refuse an app, or warn of it, before the first change.
#pragma once

#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// True, with a warning, when the keychain lists the name at least twice, or
// could not be asked.
bool checkForDuplicateCertificates(const WrapperLogger& log, const std::string& certificate,
                                   ErrorText* error);

}  // namespace tovrek::converter
