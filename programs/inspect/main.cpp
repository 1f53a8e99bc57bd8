#include "host/program.h"
#include "programs/inspect/inspect_program.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::inspect::run,
                            {.name = "Inspect", .cleansUpOnSignals = true});
}
