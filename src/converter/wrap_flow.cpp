// The order matters: all that may refuse an app comes before the first change to it, and all that
// changes its files before the signatures.
#include "converter/wrap_flow.h"

#include "converter/extension_fitting.h"
#include "converter/flow.h"
#include "converter/result_check.h"
#include "converter/steps.h"

namespace tovrek::converter {

bool wrapApp(Run& run, ErrorText* error) {
  return takeSteps(
      {
          // What it is, and whether it may go on.
          openApp,
          refuseSdkApp,
          refuseWrappedApp,
          refuseUnsupportedApp,
          planSignature,
          stripOrReportExtensions,
          checkCertificate,
          // What is changed in it.
          insertLibrary,
          insertLogger,
          warnOfOldHost,
          announceRebuild,
          rebuildExecutable,
          changeBundleIdentifier,
          placeProfile,
          placePolicies,
          nameIpa,
          // What is told about it.
          buildManifest,
          copyIcons,
          // Its signatures, from the inside out.
          refuseBadLinks,
          fitExtensions,
          dropOldSignature,
          signLibrary,
          signFrameworks,
          signExtensions,
          signApp,
          checkResult,
          // Where it goes.
          flushApp,
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
          // What it is, and whether it may go on.
          openApp,
          refuseUnsupportedApp,
          planSignature,
          stripOrReportExtensions,
          checkCertificate,
          // What is changed in it.
          insertSdkResources,
          insertLogger,
          warnOfOldHost,
          announceRebuild,
          changeBundleIdentifier,
          placeProfile,
          placePolicies,
          nameSdkIpa,
          // What is told about it.
          buildManifest,
          copyIcons,
          // Its signatures, from the inside out.
          refuseBadLinks,
          fitExtensions,
          dropOldSignature,
          signFrameworks,
          signExtensions,
          stampFingerprint,
          signApp,
          checkResult,
          // Where it goes.
          flushApp,
          writeSdkIpa,
          copyOutputBundle,
          completeManifestOfSdkApp,
          writePackage,
      },
      run, error);
}

}  // namespace tovrek::converter
