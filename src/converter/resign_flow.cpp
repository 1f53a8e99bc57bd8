#include "converter/resign_flow.h"

#include "converter/extension_fitting.h"
#include "converter/flow.h"
#include "converter/result_check.h"
#include "converter/steps.h"

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
          openApp,
          refuseSdkApp,
          refuseOrRenewWrappedApp,
          refuseUnsupportedApp,
          planSignature,
          dropRepeatedGroups,
          stripOrKeepExtensions,
          checkCertificate,
          warnOfOldHost,
          changeBundleIdentifier,
          placeProfile,
          nameIpa,
          refuseBadLinks,
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
