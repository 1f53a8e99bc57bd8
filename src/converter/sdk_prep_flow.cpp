#include "converter/sdk_prep_flow.h"

#include "converter/flow.h"
#include "converter/input.h"
#include "converter/steps.h"

namespace tovrek::converter {
namespace {

bool makeScratchFolder(Run& run, ErrorText* error) {
  run.input.directory = std::make_shared<TemporaryDirectory>();
  if (!run.input.directory->Create(error)) return false;
  logLeftovers(run.log(), *run.input.directory);
  return true;
}

// The newer SDK of two frameworks checks itself.
bool stampFingerprintOfOlderSdk(Run& run, ErrorText* error) {
  return run.inspection.hasMAMSDKFrameworks || stampFingerprint(run, error);
}

}  // namespace

bool prepareSdkApp(Run& run, ErrorText* error) {
  return takeSteps(
      {
          openAppFolder,
          checkLoadOrder,
          inspectApp,
          requireManagementGroup,
          embedManagementFiles,
          takeBundleIdentifiers,
          makeScratchFolder,
          placePolicies,
          nameSdkIpa,
          buildManifest,
          copyIcons,
          refuseBadLinks,
          stampFingerprintOfOlderSdk,
          completeManifestOfAppFolder,
          flushApp,
          writePackage,
      },
      run, error);
}

}  // namespace tovrek::converter
