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

// --- Steps ---

// Apps that were built with our SDK.
bool refuseSdkApp(Run& run, ErrorText* error);
// Apps that load our dylib already.
bool refuseWrappedApp(Run& run, ErrorText* error);
// The same where the setting "resignWrapped" may let them pass, as renewals.
bool refuseOrRenewWrappedApp(Run& run, ErrorText* error);
// Adobe AIR and encrypted apps. Others that seem to be no native apps are only warned of.
bool refuseUnsupportedApp(Run& run, ErrorText* error);
// Warns of a certificate that may not serve.
bool checkCertificate(Run& run, ErrorText* error);

}  // namespace tovrek::converter
