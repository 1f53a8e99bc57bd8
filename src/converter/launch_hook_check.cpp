// Apart from the other questions about an app, as no flow asks this one.
#include <fmt/format.h>

#include "converter/inspection.h"
#include "converter/otool_questions.h"

namespace tovrek::converter {

bool verifyIfAppBundleIsAlreadyWrapped(const WrapperLogger& log, const AppBundle& bundle,
                                       ErrorText* error) {
  const auto outcome = runOnExecutable(
      log, bundle, otoolCommand("-o", bundle, fmt::format(" | grep \"{}\"", kLaunchHook)));
  if (!outcome) return false;
  return !successfulOutput(outcome) || fail(error, kLinkedAgainstSdk);
}

}  // namespace tovrek::converter
