// Certificates of authorities that are known without anybody having imported them.
//
// They lie in files and are read on each call: only who completes or judges a chain asks.
#pragma once

#include <string>
#include <vector>

#include "formats/Certificate.h"

namespace tovrek {

// The read-only system keychain: a folder with the published roots and intermediates. It is that
// of the host root $TOVREK_HOST_ROOT, else the one that the program was installed with. Empty when
// there is none.
std::string systemKeychain();
// What lies in it, sorted by file name; files that hold no certificate are passed over.
std::vector<Certificate> systemCertificates();

// Where roots of private authorities are looked for: "roots" in $XDG_CONFIG_HOME/tovrek (else
// ~/.config/tovrek), then /etc/tovrek/roots. Any of them may be missing.
std::vector<std::string> rootFolders();
// The self-signed certificates there, PEM or DER, in files named .cer, .crt, .der or .pem.
std::vector<Certificate> furtherRoots();

// What chains are completed with: the system keychain, then the folders' roots.
std::vector<Certificate> authorityCertificates();

}  // namespace tovrek
