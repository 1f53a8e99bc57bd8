#include "converter/resign_flow.h"

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
#include "converter/nested_signing.h"
#include "converter/output.h"
#include "converter/result_check.h"

namespace tovrek::converter {
namespace {

// The library that wrapping has put into the app.
bool signLibraryOfRenewal(Run& run, ErrorText* error) {
  return !run.isRenewal || signLibrary(run, error);
}

}  // namespace

bool resignApp(Run& run, ErrorText* error) {
  return takeSteps(
      {
          unpackApp,
          refuseLinksOutOfApp,
          emptyPackageFolder,
          inspectApp,
          refuseSdkApp,
          refuseOrRenewWrappedApp,
          refuseUnsupportedApp,
          takeBundleIdentifiers,
          readProfile,
          refuseExpiredProfile,
          readProfilesFolder,
          makeEntitlements,
          dropRepeatedGroups,
          stripOrKeepExtensions,
          checkCertificate,
          warnOfOldHost,
          changeBundleIdentifier,
          placeProfile,
          nameIpa,
          fitExtensions,
          dropOldSignature,
          signLibraryOfRenewal,
          signAgain,
          checkResult,
          writeIpa,
          deliverIpa,
      },
      run, error);
}

}  // namespace tovrek::converter
