// Taking the user's app in: unpacking, and what every flow sees to before it looks at the app.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// Unpacks the input into the slot's folder; makes one when the slot is empty. Null with the reason
// on failure. The slot for the reason reads "Invalid input" after a success.
std::shared_ptr<UnzippedIpa> unzipIpa(const std::optional<std::string>& inputPath,
                                      std::shared_ptr<TemporaryDirectory>* tempDir,
                                      ErrorText* error, const RunContext& context);

// Tells what killed runs had left and this one has removed.
void logLeftovers(const WrapperLogger& log, const TemporaryDirectory& directory);

}  // namespace tovrek::converter
