// How flows are written: a list of named steps.
#pragma once

#include <initializer_list>

#include "converter/Run.h"
#include "host/ErrorText.h"

namespace tovrek::converter {

// A step answers whether the run goes on, and leaves the reason in the slot when it does not. Some
// leave a warning there and go on.
using Step = bool (*)(Run& run, ErrorText* error);

// Takes the steps in their order, up to the first that fails. Nothing is undone after that:
// everything written so far lies in the scratch folder, which goes with the run, or at the output
// paths.
inline bool takeSteps(std::initializer_list<Step> steps, Run& run, ErrorText* error) {
  for (const Step step : steps) {
    if (!step(run, error)) return false;
  }
  return true;
}

}  // namespace tovrek::converter
