#include "converter/extensions.h"

#include <fmt/format.h>

#include "converter/common.h"
#include "converter/extension_fitting.h"
#include "converter/steps.h"
#include "host/files.h"

namespace tovrek::converter {
namespace {

std::vector<std::string> extensionFolders(const Run& run) {
  std::vector<std::string> folders;
  for (const char* name : {"PlugIns", "Watch"}) {
    const std::string folder = joinPath(run.appPath, name);
    if (fileExists(folder)) folders.push_back(folder);
  }
  return folders;
}

// What cannot be removed stays, and with it the app may still be tried out.
void strip(const Run& run, const std::string& folder) {
  run.log().logBasic("Stripping extensions at path " + folder);
  ErrorText reason;
  if (removeItem(folder, &reason)) return;
  run.log().logWarning(
      fmt::format("The extensions in {} were not removed: {}", folder, reason.text()));
}

}  // namespace

bool stripOrReportExtensions(Run& run, ErrorText* error) {
  for (const std::string& folder : extensionFolders(run)) {
    if (run.request.stripExtensions) {
      strip(run, folder);
      continue;
    }
    // Then the warning is for those that cannot be fitted.
    if (fitsExtensions(run)) continue;
    run.log().logBasic(kExtensionsDoubtful);
    fail(error, kExtensionsDoubtful);
  }
  return true;
}

bool stripOrKeepExtensions(Run& run, ErrorText* /*error*/) {
  for (const std::string& folder : extensionFolders(run)) {
    if (run.context.settings.keepExtensionsOnSign) {
      run.log().logBasic("keepExtensionsOnSign keeps the extensions at path " + folder);
    } else {
      strip(run, folder);
    }
  }
  return true;
}

}  // namespace tovrek::converter
