#include "host/program.h"
#include "programs/batch/batch_program.h"

int main(int argc, char** argv) {
  return tovrek::runProgram(argc, argv, tovrek::batch::run,
                            {.name = "Batch", .cleansUpOnSignals = true});
}
