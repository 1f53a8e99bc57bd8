// The front of the conversions, as the commands call it.
#pragma once

#include <memory>
#include <string>

#include "context/RunContext.h"
#include "converter/Request.h"
#include "converter/UnpackedInput.h"
#include "host/ErrorText.h"
#include "log/TKProgressor.h"

namespace tovrek {

namespace converter {
struct Run;
}

// Runs once per object. Operations answer whether they succeeded and leave the reason in the
// error slot; some leave a warning there after a success, so judge by the result alone. Nothing
// is undone after a failure: everything written so far lies in the scratch folder, which is
// removed with the run, or at the output paths.
//
// Console lines go to the system log; log lines to the "ToolkitLib" logger.
class AppConverter {
 public:
  // All but the path and the input must outlive the converter. `contentPath` is the folder of
  // bundles and policies to insert, only read from. `input` when the app is unpacked already.
  AppConverter(const Request& request, RunContext& context, TKProgressor& progressor,
               std::string contentPath, UnpackedInput input = {});

  // --- Before a conversion ---

  // Points the loggers of all modules but the command line's at the log file and levels.
  static void initializeLogging(const Request& request, RunContext& context);
  // Unpacks the input into `input`, whose folder is used when it has one, and refuses apps that
  // were built with our SDK.
  static bool unzipIpaAndProcessConverterParameters(const Request& request,
                                                    const RunContext& context, UnpackedInput* input,
                                                    ErrorText* error);

  // --- The actions ---

  // Wraps or re-signs an app, or changes a package, as the request says. True: the package, or
  // the output .ipa, was written.
  bool CreatePackage(ErrorText* error);
  // Signs the app inside a .wex package anew.
  bool CreatePackageFromWex(ErrorText* error);
  // Places the management files into an app that was built with our SDK, and packages it.
  bool EmbedResourcesIntoApp(ErrorText* error);

 private:
  converter::Run newRun();

  const Request& request_;
  RunContext& context_;
  TKProgressor& progressor_;
  std::string contentPath_;
  UnpackedInput input_;
};

}  // namespace tovrek
