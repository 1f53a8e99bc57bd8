// Checksums of a bundle, and texts, in the forms that servers know.
#pragma once

#include <string>
#include <string_view>

#include "formats/Digest.h"
#include "log/ProgressStage.h"
#include "log/WrapperLogger.h"

namespace tovrek {

// Appends the contents of all files below the folder to `data`, in walk order; files that cannot
// be read are logged and left out, but a folder that cannot makes it false. The data is only ever
// hashed, so it is kept as a running digest and not in memory. `stage` may be null.
bool LookForRecursiveFileWith(const std::string& directory, Digest& data,
                              const WrapperLogger& logger, ProgressStage* stage = nullptr);
// 32 upper-case digits.
std::string CalulateMD5StringFromData(std::string_view data);
// 64 lower-case digits; `data` is a SHA-256 digest and starts anew.
std::string CalulateSHA2StringFromData(Digest& data);
std::string CalulateSHA2StringFromData(std::string_view data);

}  // namespace tovrek
