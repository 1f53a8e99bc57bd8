#include "converter/extensions.h"

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

void strip(const Run& run, const std::string& folder) {
  run.log().logBasic("Stripping extensions at path " + folder);
  removeItem(folder);
}

}  // namespace

bool stripOrReportExtensions(Run& run, ErrorText* error) {
  for (const std::string& folder : extensionFolders(run)) {
    if (run.request.stripExtensions) {
      strip(run, folder);
      continue;
    }
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
