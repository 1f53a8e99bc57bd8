#include "host/program.h"
#include "programs/tovrek/Toolkit.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::toolkit::run,
                            {.cleansUpOnSignals = true,
                             .onUncaught = tovrek::toolkit::reportUncaught,
                             .outOfMemory = {.text = tovrek::toolkit::kOutOfMemory,
                                             .status = tovrek::toolkit::kExitConversionFailed}});
}
