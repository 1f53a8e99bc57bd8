// Runs of steps that several flows take.
#include "converter/extension_fitting.h"
#include "converter/flow.h"
#include "converter/inspection.h"
#include "converter/steps.h"

namespace tovrek::converter {

bool openApp(Run& run, ErrorText* error) {
  return takeSteps({unpackApp, emptyPackageFolder, inspectApp}, run, error);
}

bool planSignature(Run& run, ErrorText* error) {
  return takeSteps({takeBundleIdentifiers, readProfile, refuseExpiredProfile, readProfilesFolder,
                    makeEntitlements},
                   run, error);
}

}  // namespace tovrek::converter
