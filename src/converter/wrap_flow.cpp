// The order matters: all that may refuse an app comes before the first change to it, and all that
// changes its files before the signatures.
#include "converter/wrap_flow.h"

#include "converter/flow.h"
#include "converter/steps.h"

namespace tovrek::converter {

bool wrapApp(Run& run, ErrorText* error) {
  return takeSteps(
      {
          openApp,
          refuseSdkApp,
          refuseWrappedApp,
          refuseUnsupportedApp,
          planSignature,
          stripOrReportExtensions,
          checkCertificate,
          insertLibrary,
          insertLogger,
          warnOfOldHost,
          announceRebuild,
          rebuildExecutable,
          changeBundleIdentifier,
          placeProfile,
          placePolicies,
          nameIpa,
          buildManifest,
          copyIcons,
          dropOldSignature,
          signLibrary,
          signFrameworks,
          signExtensions,
          signApp,
          writeIpa,
          copyOutputBundle,
          completeManifest,
          writePackage,
      },
      run, error);
}

bool wrapSdkApp(Run& run, ErrorText* error) {
  return takeSteps(
      {
          openApp,
          refuseUnsupportedApp,
          planSignature,
          stripOrReportExtensions,
          checkCertificate,
          insertSdkResources,
          insertLogger,
          warnOfOldHost,
          announceRebuild,
          changeBundleIdentifier,
          placeProfile,
          placePolicies,
          nameSdkIpa,
          buildManifest,
          copyIcons,
          dropOldSignature,
          signFrameworks,
          signExtensions,
          stampFingerprint,
          signApp,
          writeSdkIpa,
          copyOutputBundle,
          completeManifestOfSdkApp,
          writePackage,
      },
      run, error);
}

}  // namespace tovrek::converter
