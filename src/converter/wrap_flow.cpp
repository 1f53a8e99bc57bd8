// The order matters: all that may refuse an app comes before the first change to it, and all that
// changes its files before the signatures.
#include "converter/wrap_flow.h"

#include "converter/archives.h"
#include "converter/bundle_identifier.h"
#include "converter/code_signing.h"
#include "converter/eligibility.h"
#include "converter/entitlements.h"
#include "converter/extension_fitting.h"
#include "converter/extensions.h"
#include "converter/flow.h"
#include "converter/input.h"
#include "converter/insertion.h"
#include "converter/manifest.h"
#include "converter/output.h"
#include "converter/policies.h"
#include "converter/result_check.h"

namespace tovrek::converter {

bool wrapApp(Run& run, ErrorText* error) {
  return takeSteps(
      {
          unpackApp,
          refuseLinksOutOfApp,
          emptyPackageFolder,
          inspectApp,
          refuseSdkApp,
          refuseWrappedApp,
          refuseUnsupportedApp,
          takeBundleIdentifiers,
          readProfile,
          refuseExpiredProfile,
          readProfilesFolder,
          makeEntitlements,
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
          fitExtensions,
          dropOldSignature,
          signLibrary,
          signFrameworks,
          signExtensions,
          signApp,
          checkResult,
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
          unpackApp,
          refuseLinksOutOfApp,
          emptyPackageFolder,
          inspectApp,
          refuseUnsupportedApp,
          takeBundleIdentifiers,
          readProfile,
          refuseExpiredProfile,
          readProfilesFolder,
          makeEntitlements,
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
          fitExtensions,
          dropOldSignature,
          signFrameworks,
          signExtensions,
          stampFingerprint,
          signApp,
          checkResult,
          writeSdkIpa,
          copyOutputBundle,
          completeManifestOfSdkApp,
          writePackage,
      },
      run, error);
}

}  // namespace tovrek::converter
