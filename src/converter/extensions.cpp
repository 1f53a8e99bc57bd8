#include "converter/extensions.h"

#include "converter/common.h"
#include "converter/extension_fitting.h"
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

bool strip(const Run& run, const std::string& folder, ErrorText* error) {
  run.log().logBasic("Stripping extensions at path " + folder);
  ErrorText reason;
  return removeItem(folder, &reason) || failToRemove(reason, error);
}

}  // namespace

bool stripOrReportExtensions(Run& run, ErrorText* error) {
  for (const std::string& folder : extensionFolders(run)) {
    if (run.request.stripExtensions) {
      if (!strip(run, folder, error)) return false;
      continue;
    }
    // Then the warning is for those that cannot be fitted.
    if (fitsExtensions(run)) continue;
    run.log().logBasic(kExtensionsDoubtful);
    fail(error, kExtensionsDoubtful);
  }
  return true;
}

bool stripOrKeepExtensions(Run& run, ErrorText* error) {
  for (const std::string& folder : extensionFolders(run)) {
    if (run.context.settings.keepExtensionsOnSign) {
      run.log().logBasic("keepExtensionsOnSign keeps the extensions at path " + folder);
    } else if (!strip(run, folder, error)) {
      return false;
    }
  }
  return true;
}

}  // namespace tovrek::converter
