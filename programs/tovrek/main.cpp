#include "host/program.h"
#include "programs/tovrek/Toolkit.h"
#include "programs/tovrek/carried_companions.h"

int main(int argc, char** argv) {
  tovrek::toolkit::bringCompanions();
  return tovrek::runProgram(argc, argv, tovrek::toolkit::run,
                            {.cleansUpOnSignals = true,
                             .onUncaught = tovrek::toolkit::reportUncaught,
                             .outOfMemory = {.text = tovrek::toolkit::kOutOfMemory,
                                             .status = tovrek::toolkit::kExitConversionFailed}});
}
