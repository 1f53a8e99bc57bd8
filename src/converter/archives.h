// The two archives: the signed app and the package around it.
#pragma once

#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Zips the Payload of `sourceDir` and moves the archive to `targetDir`, in place of one that stands
// there. Where zip fails the archive counts as missing: what zip left behind is not whole.
bool ZipToIpa(const Run& run, const std::string& ipaName, const std::string& sourceDir,
              const std::string& targetDir, ErrorText* error);
// The same for an unpacked package, with links followed instead of stored.
bool ZipToIpaFromWex(const Run& run, const std::string& sourceDir, const UnzippedCma& package,
                     const std::string& packageDir, ErrorText* error);
// Zips the package folder and moves the archive to the output file of the request. A folder or
// device of that name stays, and is no failure.
bool ZiptoPackage(const Run& run, const std::string& packageDir, ErrorText* error);

}  // namespace tovrek::converter
