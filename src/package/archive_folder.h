// Unpacking of archives and the search in what they held.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/ErrorText.h"
#include "host/process.h"
#include "log/ProgressStage.h"
#include "log/WrapperLogger.h"

namespace tovrek {

class TemporaryDirectory;

// Whether there is a scratch folder to unpack into. Clears the slot; the log is told if not.
bool isFolderGiven(const TemporaryDirectory* folder, ErrorText* error);

// Runs unzip on the archive; status 127 when it could not be started. What it complains of when it
// fails is shown, and is an error in `log` (may be null). `stage`, which may be null, tells how far
// it is. `environment` comes on top of the usual one.
Outcome runUnzip(const std::string& archive, const std::string& destination,
                 const WrapperLogger* log, ProgressStage* stage = nullptr,
                 const std::vector<std::pair<std::string, std::string>>& environment = {});

// Whether unzip succeeded, and the text of both unpackers when it did not. unzip writes its
// complaints to standard error, so the text has often no reason in it.
bool isUnzipped(const Outcome& outcome, ErrorText* error);

// The name of the first entry of the folder, in listing order, with exactly this extension.
std::optional<std::string> firstEntryWithExtension(const std::string& folder,
                                                   std::string_view extension);

// The app in an unpacked archive: the first real folder "*.app" in `tempDir`/Payload. Sets
// `payloadDir` as soon as that folder is known to exist. Links are passed over, since an archive
// may hold one that leads to a folder of the user's.
std::optional<std::string> findPayloadApp(const std::string& tempDir, std::string* payloadDir,
                                          ErrorText* error);

}  // namespace tovrek
